#include "callkyt/MsgText.h"

#include "TextFormat.h"
#include "callkyt/CMsg.h"
#include "callkyt/CStream.h"
#include "callkyt/MsgDic.h"

namespace {

using kyt_detail::TextBuffer;

int CountTag(const CMsg& msg, int tag) {
  int n = 0;
  CMsg::Cursor cur(msg);
  CMsg::Value v;
  while (cur.Next(&v)) n += v.tag == tag;
  return n;
}

// The name of a field for the text form: the message's own field where the
// dictionary knows the message, else the form that fits the number of values.
const char* FieldName(const CMsgDic& dic, const KytMsgInfo* info, const CMsg& msg, int tag) {
  if (info) {
    if (const KytFieldInfo* f = dic.FindMessageField(*info, tag)) return f->name;
  }
  const KytFieldInfo* f = dic.FindField(tag, CountTag(msg, tag) > 1);
  return f ? f->name : nullptr;
}

void WriteHead(TextBuffer& out, const CMsgDic& dic, const CMsg& msg) {
  out.Append('M');
  kyt_detail::AppendInt(out, msg.msgnum);
  if (const KytMsgInfo* info = dic.FindMessage(msg.msgnum)) {
    out.Append(' ');
    out.Append(info->name, std::char_traits<char>::length(info->name));
  }
  out.Append(" {\n", 3);
}

void WriteTree(TextBuffer& out, const CMsgDic& dic, const CMsg& msg, int depth) {
  const KytMsgInfo* info = dic.FindMessage(msg.msgnum);
  CMsg::Cursor cur(msg);
  CMsg::Value v;
  while (cur.Next(&v)) {
    out.Fill(' ', 2 * (depth + 1));
    out.Append('T');
    kyt_detail::AppendInt(out, v.tag);
    if (const char* name = FieldName(dic, info, msg, v.tag)) {
      out.Append(' ');
      out.Append(name, std::char_traits<char>::length(name));
    }
    static const char kLetters[] = "?idbnsm";
    out.Append(' ');
    out.Append(kLetters[v.kind]);
    out.Append(' ');
    bool unset = !v.isSet && v.kind != KYT_STR && v.kind != KYT_MSG;
    if (unset) {
      out.Append('-');
    } else {
      switch (v.kind) {
        case KYT_INT:
          kyt_detail::AppendInt(out, v.i);
          break;
        case KYT_DBL:
          kyt_detail::AppendShortest(out, v.d);
          break;
        case KYT_BOOL:
          out.Append(v.b ? 'Y' : 'N');
          break;
        case KYT_DATE:
        case KYT_STR:
          kyt_detail::QuoteTo(out, v.text, v.len);
          break;
        case KYT_MSG:
          WriteHead(out, dic, *v.msg);
          WriteTree(out, dic, *v.msg, depth + 1);
          out.Fill(' ', 2 * (depth + 1));
          out.Append('}');
          break;
      }
    }
    out.Append('\n');
  }
}

}  // namespace

void MA_WriteMsgText(const CMsg* msg, CStream* out) {
  if (!msg || !out) return;
  const CMsgDic& dic = *MA_GetMsgDic();
  TextBuffer text;
  WriteHead(text, dic, *msg);
  WriteTree(text, dic, *msg, 0);
  text.Append("}\n", 2);
  out->AppendData(text.data(), text.size());
}
