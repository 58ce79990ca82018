#include "TextFuzz.h"

#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "MsgJson.h"
#include "MsgText.h"

namespace fuzzing {

namespace {

using MsgPtr = std::unique_ptr<CMsg>;

std::string g_scratch;

void RemoveScratch() {
  std::error_code ignored;
  std::filesystem::remove_all(g_scratch, ignored);
}

// The error of a text that was refused: a reason, and a position in the
// text. Line n + 1 is the line below a text of n lines that ends in a
// newline, where only column 1 exists; columns count bytes from 1, after a
// byte order mark on line 1, up to one past the end of the line (before a
// "\r\n").
void CheckPosition(const char* text, size_t size, const MsgTextError& err) {
  Check(strnlen(err.reason, sizeof err.reason) < sizeof err.reason);
  Check(err.reason[0] != '\0');
  Check(err.line >= 1 && err.column >= 1);
  size_t start = 0;
  if (size >= 3 && std::memcmp(text, "\xEF\xBB\xBF", 3) == 0) start = 3;
  for (int line = 1; line < err.line; ++line) {
    const void* nl = std::memchr(text + start, '\n', size - start);
    Check(nl != nullptr);
    start = static_cast<size_t>(static_cast<const char*>(nl) - text) + 1;
  }
  const void* nl = std::memchr(text + start, '\n', size - start);
  size_t end = nl ? static_cast<size_t>(static_cast<const char*>(nl) - text) : size;
  if (nl && end > start && text[end - 1] == '\r') --end;
  Check(static_cast<size_t>(err.column) <= end - start + 1);
}

std::string Written(CMsg* msg) {
  std::string text;
  MsgTextError err{};
  Check(MA_WriteMsgText(msg, &text, &err) == MSGTEXT_OK);
  return text;
}

// The bytes read by `read`: a tree read is written by `write` to a form
// that reads back to the same tree (the same in the text form) and writes
// the same again; bytes refused are refused at a place inside them.
void RoundTrip(const uint8_t* data, size_t size, CMsg* (*read)(const char*, size_t, MsgTextError*),
               int (*write)(CMsg*, std::string*, MsgTextError*)) {
  const char* text = reinterpret_cast<const char*>(data);
  MsgTextError err{};
  MsgPtr msg(read(text, size, &err));
  if (!msg) {
    Check(err.code == MSGTEXT_E_TEXT || err.code == MSGTEXT_E_NOMEM);
    CheckPosition(text, size, err);
    return;
  }
  Check(err.code == 0 && err.line == 0 && err.column == 0 && err.reason[0] == '\0');
  std::string first, second;
  Check(write(msg.get(), &first, &err) == MSGTEXT_OK);
  MsgPtr again(read(first.data(), first.size(), &err));
  Check(again != nullptr);
  Check(Written(again.get()) == Written(msg.get()));
  Check(write(again.get(), &second, &err) == MSGTEXT_OK);
  Check(second == first);
}

}  // namespace

void Check(bool promise) {
  if (!promise) std::abort();
}

void Store(const std::string& path, const char* data, size_t size) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  Check(static_cast<bool>(out.write(data, static_cast<std::streamsize>(size)).flush()));
}

const char* ScratchDir() {
  if (g_scratch.empty()) {
    const char* tmp = std::getenv("TMPDIR");
    std::string pattern = std::string(tmp && *tmp ? tmp : "/tmp") + "/pricemsg-fuzz-XXXXXX";
    Check(mkdtemp(pattern.data()) != nullptr);
    g_scratch = pattern;
    std::atexit(RemoveScratch);
  }
  return g_scratch.c_str();
}

void ReadText(const uint8_t* data, size_t size) {
  RoundTrip(data, size, MA_ReadMsgText, MA_WriteMsgText);
}

void ReadFile(const uint8_t* data, size_t size) {
  const std::string in = std::string(ScratchDir()) + "/in.msg";
  Store(in, reinterpret_cast<const char*>(data), size);
  MsgTextError fromFile{}, fromText{};
  MsgPtr msg(MA_ReadMsgFile(in.c_str(), &fromFile));
  // A file is read no further than a NUL byte, which no message file holds.
  if (std::memchr(data, 0, size)) {
    Check(msg == nullptr && fromFile.code == MSGTEXT_E_TEXT);
    Check(std::strstr(fromFile.reason, "NUL byte") != nullptr);
    CheckPosition(reinterpret_cast<const char*>(data), size, fromFile);
    return;
  }
  // Read as a file reads it: JSON by its first character, else text.
  const char* bytes = reinterpret_cast<const char*>(data);
  MsgPtr same(MA_IsMsgJson(bytes, size) ? MA_ReadMsgJson(bytes, size, &fromText)
                                        : MA_ReadMsgText(bytes, size, &fromText));
  Check((msg != nullptr) == (same != nullptr));
  Check(fromFile.line == fromText.line && fromFile.column == fromText.column);
  Check(std::strcmp(fromFile.reason, fromText.reason) == 0);
  Check(fromFile.code == fromText.code);
  if (msg) Check(Written(same.get()) == Written(msg.get()));
}

void ReadJson(const uint8_t* data, size_t size) {
  RoundTrip(data, size, MA_ReadMsgJson, MA_WriteMsgJson);
}

}  // namespace fuzzing
