// The message dictionary of libcallkyt_dat. This runtime checks no tag
// against it: a message only keeps the pointer, as a sign that it was made
// for this process's dictionary.
#include "altkyt/Dictionary.h"

class CMsgDic {
 public:
  const char* name;
  int version;
};

namespace {

CMsgDic dictionary{"altkyt", 1};

}  // namespace

CMsgDic* MA_GetMsgDic() { return &dictionary; }
