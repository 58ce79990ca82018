#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>

#include "MsgText.h"
#include "Reflect.h"
#include "RuntimeProbe.h"
#include "SchemaTables.h"

namespace schema = pricemsg::schema;

namespace testing_support {

MsgPtr NewMsg(int msgnum) { return MsgPtr(new CMsg(msgnum, 0, 0, MA_GetMsgDic())); }

namespace {

template <class V, class T>
V SetTo(T v) {
  V out;
  out.value = v;
  out.isSet = true;
  return out;
}

}  // namespace

CInt Int(int v) { return SetTo<CInt>(v); }
CDbl Dbl(double v) { return SetTo<CDbl>(v); }
CBool Bool(bool v) { return SetTo<CBool>(v); }
CDate Date(const char* text) {
  CDate d;
  d.Set(text);
  return d;
}

std::string Str(const CString& s) {
  return std::string(s.ToStr(), static_cast<size_t>(s.GetSize()));
}
std::string EmptyRepr() { return Str(CString().Repr()); }
std::string Repr(const CIntArray& a) { return Str(a.Repr(", ", false)); }
std::string Repr(const CDblArray& a) { return Str(a.Repr(", ", false)); }

std::string Text(CMsg* msg) {
  std::string text;
  MsgTextError err{};
  int rc = MA_WriteMsgText(msg, &text, &err);
  EXPECT_EQ(rc, 0) << "the tree has no text form: " << err.reason;
  return text;
}

std::string DumpOf(const CMsgBase& obj) {
  CStream out;
  obj.Dump(&out);
  return pricemsg::probe::StreamText(out);
}

std::string DumpOf(const CMsgBase_Array& arr) {
  CStream out;
  arr.Dump(&out);
  return pricemsg::probe::StreamText(out);
}

namespace {

struct Sampler {
  const SampleShape& shape;
  bool filled;
  unsigned seed;

  unsigned Next() {
    seed = seed * 1103515245u + 12345u;
    return (seed >> 8) & 0xffff;
  }

  // One value of a field, or each element of a value array.
  int Value(CMsg& msg, const schema::FieldInfo& f) {
    return pricemsg::WithKind(f.kind, [&](auto type) { return Put(msg, f, Next(), type); });
  }

  int Put(CMsg& msg, const schema::FieldInfo& f, unsigned r, pricemsg::TypeTag<CInt>) {
    return msg.SetValue(f.tag, filled ? Int(static_cast<int>(r)) : CInt());
  }
  int Put(CMsg& msg, const schema::FieldInfo& f, unsigned r, pricemsg::TypeTag<CDbl>) {
    return msg.SetValue(f.tag, filled ? Dbl(r * 0.001 - 7.5) : CDbl());
  }
  int Put(CMsg& msg, const schema::FieldInfo& f, unsigned r, pricemsg::TypeTag<CBool>) {
    return msg.SetValue(f.tag, filled ? Bool(r & 1) : CBool());
  }
  int Put(CMsg& msg, const schema::FieldInfo& f, unsigned r, pricemsg::TypeTag<CDate>) {
    CDate d;
    if (filled) {
      char text[16];
      std::snprintf(text, sizeof text, "20%02u%02u%02u", r % 60, 1 + r % 12, 1 + r % 28);
      d.Set(text);
    }
    return msg.SetValue(f.tag, d);
  }
  int Put(CMsg& msg, const schema::FieldInfo& f, unsigned r, pricemsg::TypeTag<CString>) {
    // Some texts are long enough to leave a short string's own buffer.
    std::string text;
    if (filled) {
      text = std::string(f.name) + "#" + std::to_string(r);
      if (r % 3 == 0) text += " and a tail that makes it longer than thirty-one bytes";
    }
    return msg.SetValue(f.tag, text.c_str());
  }
  int Put(CMsg& msg, const schema::FieldInfo& f, unsigned, pricemsg::TypeTag<CIntArray>) {
    for (int i = 0; filled && i < 3; ++i) {
      if (int rc = msg.SetValue(f.tag, static_cast<int>(Next()) - 30000); rc < 0) return rc;
    }
    return 0;
  }
  int Put(CMsg& msg, const schema::FieldInfo& f, unsigned, pricemsg::TypeTag<CDblArray>) {
    for (int i = 0; filled && i < 3; ++i) {
      if (int rc = msg.SetValue(f.tag, Next() / 64.0 - 100.0); rc < 0) return rc;
    }
    return 0;
  }
  template <class T>
  int Put(CMsg&, const schema::FieldInfo&, unsigned, pricemsg::TypeTag<T>) {
    std::abort();  // messages are built by Build
  }

  MsgPtr Build(int msgnum, int depth) {
    const schema::ClassInfo* info = schema::FindClass(msgnum);
    if (!info) std::abort();
    MsgPtr msg = NewMsg(msgnum);
    for (int i = 0; i < info->memberCount; ++i) {
      const schema::FieldInfo& f = schema::MemberOf(*info, i);
      bool single = f.kind == schema::Kind::kMessage;
      if (!schema::HoldsMessage(f.kind)) {
        if (Value(*msg, f) < 0) std::abort();
        continue;
      }
      int n = single                    ? 1
              : !filled                 ? 0
              : f.tag == shape.tag      ? shape.tagElements
              : depth < shape.wideDepth ? shape.elements
                                        : 1;
      for (int k = 0; k < n; ++k) {
        if (msg->SetValue(f.tag, Build(schema::HeldClass(f).number, depth + 1).release()) < 0) {
          std::abort();
        }
      }
    }
    return msg;
  }
};

}  // namespace

MsgPtr BuildSample(int msgnum, const SampleShape& shape, unsigned seed) {
  MA_GetMsgDic();
  Sampler s{shape, shape.filled, seed};
  return s.Build(msgnum, 0);
}

MsgPtr BuildSample(int msgnum, bool filled, int wideDepth, unsigned seed) {
  SampleShape shape;
  shape.filled = filled;
  shape.wideDepth = wideDepth;
  return BuildSample(msgnum, shape, seed);
}

}  // namespace testing_support
