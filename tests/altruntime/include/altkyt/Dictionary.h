// The message dictionary, kept in libcallkyt_dat. Its content is the
// runtime's own: callers only pass the pointer on to the CMsg constructor.
#pragma once

class CMsgDic;

// The one dictionary of the process; never null.
CMsgDic* MA_GetMsgDic();
