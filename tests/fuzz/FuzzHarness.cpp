#include "FuzzHarness.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

#include "ClassCases.h"
#include "TestSupport.h"
#include "callkyt/CMsg.h"
#include "callkyt/MsgDic.h"

namespace fuzzing {

namespace {

using testing_support::ClassCase;

// Reads the input; past its end every read gives zero.
class Bytes {
 public:
  Bytes(const uint8_t* data, size_t size) : p_(data), end_(data + size) {}
  bool Empty() const { return p_ == end_; }
  uint8_t U8() { return p_ < end_ ? *p_++ : 0; }
  uint16_t U16() { return static_cast<uint16_t>(U8() | U8() << 8); }
  uint32_t U32() { return U16() | static_cast<uint32_t>(U16()) << 16; }
  double F64() {
    uint64_t bits = U32() | static_cast<uint64_t>(U32()) << 32;
    double d;
    std::memcpy(&d, &bits, sizeof d);
    return d;
  }
  std::string Text(size_t max) {
    size_t n = U8() % (max + 1);
    std::string s;
    for (size_t i = 0; i < n && !Empty(); ++i) {
      char c = static_cast<char>(U8());
      s += c ? c : '0';  // a text ends at its first NUL
    }
    return s;
  }

 private:
  const uint8_t* p_;
  const uint8_t* end_;
};

constexpr int kMaxDepth = 12;
constexpr int kMaxNodes = 2000;

// Builds a message of `num` from the input. Mostly it follows what the
// dictionary says of the message, so that the fuzzer reaches deep into the
// classes; now and then it picks any tag, any type, any number, or repeats a
// single value. The message has no dictionary, so it refuses nothing.
// The bytes of a message: a count of fields; for each an op byte (below 224:
// a field of the class, by its index in the next byte; else a tag of two
// bytes and a kind of one), a count of values where it repeats, and for each
// value a flags byte (1: set, 2: true, 0 mod 8: a sub-message of any number,
// in two bytes) and the value: four bytes of a set int, eight of a set
// double, a length byte and the bytes of a text or a set date, the bytes of
// a sub-message.
class TreeBuilder {
 public:
  TreeBuilder(Bytes& in) : in_(in), dic_(*MA_GetMsgDic()) {}

  CMsg* Build(int num, int depth) {
    ++nodes_;
    CMsg* msg = new CMsg(num, 0, 0, nullptr);
    const KytMsgInfo* info = dic_.FindMessage(num);
    int count = in_.U8() % 32;
    for (int i = 0; i < count && !in_.Empty(); ++i) {
      uint8_t op = in_.U8();
      int tag, sub = 0;
      KytKind kind;
      bool many;
      if (info && info->fieldCount > 0 && op < 224) {
        const KytFieldInfo& f = dic_.GetMessageField(*info, in_.U8() % info->fieldCount);
        tag = f.tag;
        kind = op % 16 == 0 ? AnyKind() : f.kind;
        sub = f.subNum;
        many = f.isArray || op % 16 == 1;
      } else {
        tag = static_cast<int>(in_.U16() % 6000) - 8;
        kind = AnyKind();
        many = op & 1;
      }
      int n = many ? in_.U8() % 5 : 1;
      for (int k = 0; k < n; ++k) Value(*msg, tag, kind, sub, depth);
    }
    return msg;
  }

 private:
  KytKind AnyKind() { return static_cast<KytKind>(1 + in_.U8() % 6); }

  void Value(CMsg& msg, int tag, KytKind kind, int sub, int depth) {
    uint8_t flags = in_.U8();
    bool set = flags & 1;
    switch (kind) {
      case KytKind::kInt:
        msg.SetValue(tag, set ? CInt(static_cast<int32_t>(in_.U32())) : CInt());
        break;
      case KytKind::kDbl:
        msg.SetValue(tag, set ? CDbl(in_.F64()) : CDbl());
        break;
      case KytKind::kBool:
        msg.SetValue(tag, set ? CBool(flags & 2) : CBool());
        break;
      case KytKind::kDate: {
        CDate d;
        if (set) d.Set(in_.Text(CDate::kMaxLen).c_str());
        msg.SetValue(tag, d);
        break;
      }
      case KytKind::kStr:
        msg.SetValue(tag, in_.Text(48).c_str());
        break;
      default:
        if (depth < kMaxDepth && nodes_ < kMaxNodes) {
          int num = sub && flags % 8 ? sub : in_.U16() % 5000;
          msg.SetValue(tag, Build(num, depth + 1));
        }
        break;
    }
  }

  Bytes& in_;
  const CMsgDic& dic_;
  int nodes_ = 0;
};

void Check(bool promise) {
  if (!promise) std::abort();
}

}  // namespace

// The input: a class by its index in AllClasses() (two bytes), a byte that
// is 0 mod 16 where another number (two bytes) goes in the class's place,
// then the bytes of the message. The seeds in corpus/ fill every field of a
// few classes.
void RunOne(const uint8_t* data, size_t size) {
  const auto& classes = testing_support::AllClasses();
  Bytes in(data, size);
  const ClassCase& c = classes[in.U16() % classes.size()];
  int num = in.U8() % 16 ? c.number : in.U16();  // now and then another number
  std::unique_ptr<CMsg> root(TreeBuilder(in).Build(num, 0));

  std::unique_ptr<CMsgBase> obj = c.make();
  int rc = obj->Load(root.get());
  Check(rc <= 0);
  Check(rc == 0 || !obj->errtext.IsEmpty());
  std::string dump = testing_support::DumpOf(*obj);
  std::unique_ptr<CMsgBase> copy = c.make();
  c.copy(*copy, *obj);
  Check(testing_support::DumpOf(*copy) == dump);

  // A message that loaded comes back the same through the copy, unless it
  // held a date that the dictionary refuses to send.
  std::unique_ptr<CMsg> back(copy->ToMsg());
  if (!back) {
    Check(std::strstr(copy->errtext.ToStr(), "SET_") != nullptr);
    return;
  }
  if (rc == 0) {
    std::unique_ptr<CMsgBase> again = c.make();
    Check(again->Load(back.get()) == 0);
    Check(testing_support::DumpOf(*again) == dump);
  }
}

}  // namespace fuzzing
