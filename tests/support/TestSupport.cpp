#include "TestSupport.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

#include "callkyt/CStream.h"
#include "callkyt/MsgDic.h"
#include "callkyt/MsgText.h"

namespace testing_support {

std::string Text(const CMsg* msg) {
  CStream out;
  MA_WriteMsgText(msg, &out);
  return std::string(out.ToStr(), static_cast<size_t>(out.GetSize()));
}

int Depth(const CMsg& msg) {
  int deepest = 0;
  CMsg::Cursor cur(msg);
  CMsg::Value v;
  while (cur.Next(&v)) {
    if (v.kind == KytKind::kMsg) deepest = std::max(deepest, Depth(*v.msg));
  }
  return deepest + 1;
}

std::string DumpOf(const CMsgBase& obj) {
  CStream out;
  obj.Dump(&out);
  return std::string(out.ToStr(), static_cast<size_t>(out.GetSize()));
}

std::string DumpOf(const CMsgBase_Array& arr) {
  CStream out;
  arr.Dump(&out);
  return std::string(out.ToStr(), static_cast<size_t>(out.GetSize()));
}

namespace {

struct Sampler {
  CMsgDic& dic;
  const SampleShape& shape;
  bool filled;
  unsigned seed;

  unsigned Next() {
    seed = seed * 1103515245u + 12345u;
    return (seed >> 8) & 0xffff;
  }

  void Value(CMsg& msg, const KytFieldInfo& f) {
    int tag = f.tag;
    int n = f.isArray ? (filled ? 3 : 0) : 1;
    for (int i = 0; i < n; ++i) {
      unsigned r = Next();
      int rc = 0;
      switch (f.kind) {
        case KytKind::kInt:
          rc = f.isArray ? msg.SetValue(tag, static_cast<int>(r) - 30000)
                         : msg.SetValue(tag, filled ? CInt(static_cast<int>(r)) : CInt());
          break;
        case KytKind::kDbl:
          rc = f.isArray ? msg.SetValue(tag, r / 64.0 - 100.0)
                         : msg.SetValue(tag, filled ? CDbl(r * 0.001 - 7.5) : CDbl());
          break;
        case KytKind::kBool:
          rc = msg.SetValue(tag, filled ? CBool(r & 1) : CBool());
          break;
        case KytKind::kDate: {
          CDate d;
          if (filled) {
            char text[9];
            std::snprintf(text, sizeof text, "20%02u%02u%02u", r % 60, 1 + r % 12, 1 + r % 28);
            d.Set(text);
          }
          rc = msg.SetValue(tag, d);
          break;
        }
        case KytKind::kStr: {
          // Some texts are long enough to leave the string's own buffer.
          std::string text;
          if (filled) {
            text = std::string(f.name) + "#" + std::to_string(r);
            if (r % 3 == 0) text += " and a tail that makes it longer than thirty-one bytes";
          }
          rc = msg.SetValue(tag, text.c_str());
          break;
        }
        case KytKind::kNone:
        case KytKind::kMsg:  // built by Build
          break;
      }
      if (rc < 0) std::abort();
    }
  }

  MsgPtr Build(int msgnum, int depth) {
    const KytMsgInfo* info = dic.FindMessage(msgnum);
    if (!info) std::abort();
    MsgPtr msg(new CMsg(msgnum, 0, 0, &dic));
    for (int i = 0; i < info->fieldCount; ++i) {
      const KytFieldInfo& f = dic.GetMessageField(*info, i);
      if (f.kind != KytKind::kMsg) {
        Value(*msg, f);
        continue;
      }
      int n = !f.isArray                ? 1
              : !filled                 ? 0
              : f.tag == shape.tag      ? shape.tagElements
              : depth < shape.wideDepth ? shape.elements
                                        : 1;
      for (int k = 0; k < n; ++k) {
        if (msg->SetValue(f.tag, Build(f.subNum, depth + 1).release()) < 0) std::abort();
      }
    }
    return msg;
  }
};

}  // namespace

MsgPtr BuildSample(int msgnum, const SampleShape& shape, unsigned seed) {
  Sampler s{*MA_GetMsgDic(), shape, shape.filled, seed};
  return s.Build(msgnum, 0);
}

MsgPtr BuildSample(int msgnum, bool filled, int wideDepth, unsigned seed) {
  SampleShape shape;
  shape.filled = filled;
  shape.wideDepth = wideDepth;
  return BuildSample(msgnum, shape, seed);
}

}  // namespace testing_support
