#include "TestSupport.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <new>

#include "callkyt/CStream.h"
#include "callkyt/MsgDic.h"
#include "callkyt/MsgText.h"

namespace testing_support {

std::string Text(const CMsg* msg) {
  CStream out;
  MA_WriteMsgText(msg, &out);
  return std::string(out.ToStr(), static_cast<size_t>(out.GetSize()));
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
  bool filled;
  int wideDepth;
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
        case KYT_INT:
          rc = f.isArray ? msg.SetValue(tag, static_cast<int>(r) - 30000)
                         : msg.SetValue(tag, filled ? CInt(static_cast<int>(r)) : CInt());
          break;
        case KYT_DBL:
          rc = f.isArray ? msg.SetValue(tag, r / 64.0 - 100.0)
                         : msg.SetValue(tag, filled ? CDbl(r * 0.001 - 7.5) : CDbl());
          break;
        case KYT_BOOL:
          rc = msg.SetValue(tag, filled ? CBool(r & 1) : CBool());
          break;
        case KYT_DATE: {
          CDate d;
          if (filled) {
            char text[9];
            std::snprintf(text, sizeof text, "20%02u%02u%02u", r % 60, 1 + r % 12, 1 + r % 28);
            d.Set(text);
          }
          rc = msg.SetValue(tag, d);
          break;
        }
        case KYT_STR: {
          // Some texts are long enough to leave the string's own buffer.
          std::string text;
          if (filled) {
            text = std::string(f.name) + "#" + std::to_string(r);
            if (r % 3 == 0) text += " and a tail that makes it longer than thirty-one bytes";
          }
          rc = msg.SetValue(tag, text.c_str());
          break;
        }
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
      if (f.kind != KYT_MSG) {
        Value(*msg, f);
        continue;
      }
      int n = !f.isArray ? 1 : !filled ? 0 : depth < wideDepth ? 2 : 1;
      for (int k = 0; k < n; ++k) {
        if (msg->SetValue(f.tag, Build(f.subNum, depth + 1).release()) < 0) std::abort();
      }
    }
    return msg;
  }
};

}  // namespace

MsgPtr BuildSample(int msgnum, bool filled, int wideDepth, unsigned seed) {
  Sampler s{*MA_GetMsgDic(), filled, wideDepth, seed};
  return s.Build(msgnum, 0);
}

namespace {

std::atomic<long> g_failAt{-1};
std::atomic<long> g_count{0};
std::atomic<bool> g_fired{false};

}  // namespace

void FailingAlloc::FailAt(long n) {
  g_fired = false;
  g_failAt = n;
}
void FailingAlloc::Off() { g_failAt = -1; }
long FailingAlloc::Count() { return g_count; }
void FailingAlloc::Reset() { g_count = 0; }
bool FailingAlloc::Fired() { return g_fired; }

}  // namespace testing_support

// Every operator new of the test program, and of the libraries it loads,
// comes here.
void* operator new(size_t size) {
  using namespace testing_support;
  ++g_count;
  long at = g_failAt.load();
  if (at >= 0 && g_failAt.fetch_sub(1) == 0) {
    g_fired = true;
    throw std::bad_alloc();
  }
  void* p = std::malloc(size ? size : 1);
  if (!p) throw std::bad_alloc();
  return p;
}

void* operator new[](size_t size) { return operator new(size); }
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  try {
    return operator new(size);
  } catch (...) {
    return nullptr;
  }
}
void* operator new[](size_t size, const std::nothrow_t& tag) noexcept {
  return operator new(size, tag);
}
void operator delete(void* p) noexcept { std::free(p); }
void operator delete[](void* p) noexcept { std::free(p); }
void operator delete(void* p, size_t) noexcept { std::free(p); }
void operator delete[](void* p, size_t) noexcept { std::free(p); }
void operator delete(void* p, const std::nothrow_t&) noexcept { std::free(p); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { std::free(p); }
