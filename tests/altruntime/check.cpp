// Checks of the altkyt runtime on its own: what the message classes and the
// tests rely on, and the answers it gives to bad input.
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <cstring>
#include <string>

#include "altkyt/Error.h"
#include "altkyt/Lists.h"
#include "altkyt/Message.h"
#include "altkyt/Stream.h"
#include "altkyt/Text.h"
#include "altkyt/Values.h"

namespace {

int failures = 0;

#define CHECK(cond)                                                          \
  do {                                                                       \
    if (!(cond)) {                                                           \
      std::fprintf(stderr, "%s:%d: CHECK(%s)\n", __FILE__, __LINE__, #cond); \
      ++failures;                                                            \
    }                                                                        \
  } while (0)

bool Same(const CString& s, const char* text) { return std::strcmp(s.ToStr(), text) == 0; }

// True if `fn`, run in a child process, ends it with SIGABRT.
template <class Fn>
bool Aborts(Fn fn) {
  std::fflush(nullptr);
  pid_t pid = fork();
  if (pid == 0) {
    std::freopen("/dev/null", "w", stderr);
    fn();
    _exit(0);
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFSIGNALED(status) && WTERMSIG(status) == SIGABRT;
}

CMsg* NewMsg(int num) { return new CMsg(num, 0, 0, MA_GetMsgDic()); }

void Texts() {
  CString s;
  CHECK(s.IsEmpty() && s.GetSize() == 0 && Same(s, ""));
  CHECK(Same(s.Repr(), "{empty}"));
  // Each Format replaces the whole content; the formats of the message classes
  // come out as printf gives them.
  s.Format("%s:GET_VAL_ONE(M%04d.T%d) fail", "M_SysReject", 10, 7);
  CHECK(Same(s, "M_SysReject:GET_VAL_ONE(M0010.T7) fail") && s.GetSize() == 38);
  CHECK(s.Format("%.15e", 0.25) == 21 && Same(s, "2.500000000000000e-01"));
  CHECK(s.Format("%d", -2147483647 - 1) == 11 && Same(s, "-2147483648"));
  // Its own text as an argument.
  s = "abc";
  s.Format("<%s%s>", s.ToStr(), s.ToStr());
  CHECK(Same(s, "<abcabc>"));
  std::string longText(5000, 'x');
  CHECK(s.Format("%s!", longText.c_str()) == 5001 && s.GetSize() == 5001);
  CHECK(s.Format(nullptr) == altkyt::kBadArgument && s.IsEmpty());
  s = static_cast<const char*>(nullptr);
  CHECK(s.IsEmpty());
  CHECK(Same(CString("it's\n").Repr(), "'it\\'s\\x0a'"));
  CHECK(Same(CFormat("%s::[] out of index (0 <= %d < %d)", "A", 5, 2),
             "A::[] out of index (0 <= 5 < 2)"));
  CString copy("kept");
  CString other(copy);
  copy = "changed";
  CHECK(Same(other, "kept"));

  CStream out;
  CHECK(out.AppendData("a\0b", 3) == 3 && out.AppendData("", 0) == 0);
  CHECK(out.AppendData(nullptr, 1) == altkyt::kBadArgument);
  CHECK(out.AppendData("x", -1) == altkyt::kBadArgument);
  CHECK(out.Length() == 3 && std::string(out.Collected(), out.Length()) == std::string("a\0b", 3));

  std::string huge(1000, 'e');
  CException e(huge.c_str(), -27);
  CHECK(e.Result() == -27 && std::strlen(e.Reason()) == CException::kTextSize - 1);
  CHECK(std::strcmp(CException(nullptr, 1).Reason(), "") == 0);
}

void Values() {
  CInt i;
  CDbl d;
  CBool b;
  CHECK(i.value == 0 && !i.isSet && d.value == 0.0 && !d.isSet && !b.value && !b.isSet);

  CDate date;
  CHECK(!date.isSet && std::strcmp(date.text, "00000000") == 0);
  CHECK(date.Set("20240131") == 0 && date.isSet && std::strcmp(date.text, "20240131") == 0);
  CHECK(date.Set(date.text) == 0 && std::strcmp(date.text, "20240131") == 0);
  CDate copy(date);
  CHECK(copy.isSet && std::strcmp(copy.text, "20240131") == 0);
  // Nine characters do not fit: refused, and the date is unset, not cut.
  CHECK(date.Set("202401311") == altkyt::kBadArgument && !date.isSet);
  CHECK(std::strcmp(date.text, "00000000") == 0);
  CHECK(copy.Set(nullptr) == altkyt::kBadArgument && !copy.isSet);
  CHECK(date.Set("") == 0 && date.isSet && date.text[0] == '\0');
}

void Lists() {
  CMsg* msg = NewMsg(1);
  CIntArray ints;
  CHECK(Same(ints.Repr(", ", false), "#0{}"));
  for (int v : {1, -2, 3}) msg->SetValue(5, v);
  CHECK(msg->GetValue(5, &ints) == 3 && ints.size == 3 && ints.GetAt(1) == -2);
  CHECK(Same(ints.Repr(", ", false), "#3{1, -2, 3}") && Same(ints.Repr(";", true), "1;-2;3"));
  CIntArray copy;
  copy = ints;
  CHECK(copy.size == 3 && copy.GetAt(2) == 3);
  // A size written by a caller does not take GetAt past the elements.
  copy.size = 100;
  int code = 0;
  try {
    copy.GetAt(3);
  } catch (const CException& e) {
    code = e.Result();
  }
  CHECK(code == altkyt::kOutOfRange);
  try {
    code = 0;
    ints.GetAt(-1);
  } catch (const CException& e) {
    code = e.Result();
  }
  CHECK(code == altkyt::kOutOfRange);

  msg->SetValue(6, 0.25);
  msg->SetValue(6, -1e300);
  CDblArray dbls;
  CHECK(msg->GetValue(6, &dbls) == 2);
  CHECK(Same(dbls.Repr(", ", false), "#2{2.500000000000000e-01, -1.000000000000000e+300}"));
  // Single values share the tag with elements: a set one is an element, an
  // unset one is none; the result counts both.
  CInt one;
  one.value = 9;
  one.isSet = 1;
  msg->SetValue(7, one);
  msg->SetValue(7, CInt());
  msg->SetValue(7, 4);
  CHECK(msg->GetValue(7, &ints) == 3 && ints.size == 2 && ints.GetAt(0) == 9 && ints.GetAt(1) == 4);
  CHECK(msg->GetValue(7, &one) == 3 && one.value == 9);
  // An absent tag empties the list; a mismatch leaves it.
  CHECK(msg->GetValue(6, &ints) == altkyt::kKindMismatch && ints.size == 2);
  CHECK(msg->GetValue(8, &ints) == altkyt::kAbsent && ints.size == 0);
  delete msg;
}

void Messages() {
  CMsg* msg = NewMsg(10);
  CHECK(msg->msgnum == 10);
  CInt code;
  code.value = 3;
  code.isSet = 1;
  CHECK(msg->SetValue(6, code) == 1);
  CHECK(msg->SetValue(7, "bad tag") == 1);
  CHECK(msg->SetValue(8, CInt()) == 1);
  CDate date;
  date.Set("20240131");
  CHECK(msg->SetValue(9, date) == 1);
  CHECK(msg->SetValue(0, code) == altkyt::kBadTag);
  // A date whose nine bytes hold no terminator is refused, not read past.
  CDate unterminated;
  std::memset(unterminated.text, '9', sizeof unterminated.text);
  CHECK(msg->SetValue(9, unterminated) == altkyt::kBadArgument);
  CHECK(msg->SetValue(7, static_cast<const char*>(nullptr)) == altkyt::kBadArgument);

  CInt i;
  CHECK(msg->GetValue(6, &i) == 1 && i.value == 3 && i.isSet);
  CHECK(msg->GetValue(8, &i) == 1 && !i.isSet);
  CString text("old");
  CHECK(msg->GetValue(7, &text) == 1 && Same(text, "bad tag"));
  CDate read;
  CHECK(msg->GetValue(9, &read) == 1 && read.isSet && std::strcmp(read.text, "20240131") == 0);
  // Another kind than the tag holds: refused, the target untouched.
  i.value = 77;
  i.isSet = 1;
  CHECK(msg->GetValue(7, &i) == altkyt::kKindMismatch && i.value == 77 && i.isSet);
  CDbl d;
  CHECK(msg->GetValue(6, &d) == altkyt::kKindMismatch);
  CHECK(msg->GetValue(9, &text) == altkyt::kKindMismatch && Same(text, "bad tag"));
  // An absent tag resets the target.
  CHECK(msg->GetValue(99, &i) == altkyt::kAbsent && i.value == 0 && !i.isSet);
  CHECK(msg->GetValue(99, &text) == altkyt::kAbsent && text.IsEmpty());
  CHECK(msg->GetValue(99, &read) == altkyt::kAbsent && !read.isSet);
  CHECK(msg->GetValue(6, static_cast<CInt*>(nullptr)) == altkyt::kBadArgument);

  // Sub-messages come back in the order they were added.
  for (int n = 1; n <= 3; ++n) CHECK(msg->SetValue(20, NewMsg(100 + n)) == n);
  CMsg* sub = nullptr;
  CHECK(msg->GetValue(20, &sub) == 3 && sub && sub->msgnum == 101);
  CMsgArray arr(true);
  CHECK(msg->GetValue(20, &arr) == 3 && arr.GetSize() == 3);
  CHECK(arr.GetAt(0)->msgnum == 101 && arr.GetAt(2)->msgnum == 103);
  CHECK(!arr.GetAt(3) && !arr.GetAt(-1));
  CHECK(msg->GetValue(6, &arr) == altkyt::kKindMismatch && arr.GetSize() == 3);
  CHECK(msg->GetValue(21, &arr) == altkyt::kAbsent && arr.GetSize() == 0);
  CHECK(msg->GetValue(21, &sub) == altkyt::kAbsent && !sub);
  CHECK(msg->GetValue(6, &sub) == altkyt::kKindMismatch && !sub);

  // Refused sub-messages: null; one that already has a parent or that holds
  // the message (left alone); one the message cannot take (freed).
  CHECK(msg->SetValue(20, static_cast<CMsg*>(nullptr)) == altkyt::kBadArgument);
  msg->GetValue(20, &sub);
  CHECK(msg->SetValue(22, sub) == altkyt::kSubRefused);
  CHECK(sub->SetValue(1, msg) == altkyt::kSubRefused);
  CHECK(msg->SetValue(22, msg) == altkyt::kSubRefused);
  CHECK(msg->SetValue(-5, NewMsg(5)) == altkyt::kBadTag);
  CHECK(msg->GetValue(20, &arr) == 3);
  delete msg;

  // A message not built with the dictionary and 0, 0 takes nothing.
  CMsg noDic(1, 0, 0, nullptr);
  CMsg reserved(1, 1, 0, MA_GetMsgDic());
  CHECK(noDic.SetValue(1, 5) == altkyt::kNotUsable);
  CHECK(reserved.SetValue(1, "x") == altkyt::kNotUsable);
  CHECK(reserved.GetValue(1, &i) == altkyt::kNotUsable);
  CHECK(noDic.SetValue(1, NewMsg(2)) == altkyt::kNotUsable);

  CHECK(Aborts([] { CMsgArray owning(false); }));
  CHECK(Aborts([] {
    CMsg* root = NewMsg(1);
    CMsg* child = NewMsg(2);
    root->SetValue(3, child);
    delete child;
  }));
}

}  // namespace

int main() {
  Texts();
  Values();
  Lists();
  Messages();
  if (failures) std::fprintf(stderr, "%d check(s) failed\n", failures);
  return failures ? 1 : 0;
}
