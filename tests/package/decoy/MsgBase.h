// A header of the client that has the name of one of the library's.
#error "the client's own MsgBase.h was taken for the library's"
