// Message files between runtimes: one build writes a file for every class,
// another build (on another runtime) reads them back.
//
//   msgfile_exchange write DIR   a filled object of every class, as DIR/M<number>.msg
//   msgfile_exchange check DIR   each file read, loaded into an object of its
//                                class, and compared with the object the
//                                writer had (the samples are the same on every
//                                runtime: they come from the schema and a seed)
//
// Exits with 1 and names each class that does not come back whole.
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>

#include "ClassCases.h"
#include "MsgText.h"
#include "TestSupport.h"

using namespace testing_support;

namespace {

// The object a writer writes for a class: a filled sample loaded.
std::unique_ptr<CMsgBase> Original(const ClassCase& c) {
  std::unique_ptr<CMsgBase> obj = c.make();
  MsgPtr sample = BuildSample(c.number, true, 1, static_cast<unsigned>(c.number));
  if (obj->Load(sample.get()) != 0) return nullptr;
  return obj;
}

// Writes, or reads back and compares, the file of class `c` in `dir`; gives
// what went wrong, or nothing.
std::string Exchange(bool write, const std::string& dir, const ClassCase& c) {
  const std::string path = dir + "/M" + std::to_string(c.number) + ".msg";
  std::unique_ptr<CMsgBase> original = Original(c);
  if (!original) return "the sample does not load";
  MsgTextError err{};
  if (write) {
    MsgPtr msg(original->ToMsg());
    if (!msg) return std::string("ToMsg: ") + original->errtext.ToStr();
    if (MA_WriteMsgFile(msg.get(), path.c_str(), &err) == MSGTEXT_OK) return "";
    return std::string("not written: ") + err.reason;
  }
  MsgPtr msg(MA_ReadMsgFile(path.c_str(), &err));
  if (!msg) return std::to_string(err.line) + ":" + std::to_string(err.column) + ": " + err.reason;
  std::unique_ptr<CMsgBase> read = c.make();
  if (read->Load(msg.get()) != 0) return std::string("Load: ") + read->errtext.ToStr();
  return DumpOf(*read) == DumpOf(*original) ? "" : "the object read differs from the one written";
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 || (std::strcmp(argv[1], "write") != 0 && std::strcmp(argv[1], "check") != 0)) {
    std::fprintf(stderr, "usage: msgfile_exchange write|check DIR\n");
    return 2;
  }
  int bad = 0;
  for (const ClassCase& c : AllClasses()) {
    const std::string failure = Exchange(std::strcmp(argv[1], "write") == 0, argv[2], c);
    if (failure.empty()) continue;
    std::printf("%s: %s\n", c.name, failure.c_str());
    ++bad;
  }
  std::printf("msgfile_exchange %s: %zu classes, %d failed\n", argv[1], AllClasses().size(), bad);
  return bad ? 1 : 0;
}
