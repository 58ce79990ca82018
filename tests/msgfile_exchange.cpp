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

std::string PathOf(const std::string& dir, const ClassCase& c) {
  return dir + "/M" + std::to_string(c.number) + ".msg";
}

bool Write(const std::string& dir, const ClassCase& c) {
  std::unique_ptr<CMsgBase> obj = Original(c);
  MsgPtr msg(obj ? obj->ToMsg() : nullptr);
  MsgTextError err{};
  if (!msg || MA_WriteMsgFile(msg.get(), PathOf(dir, c).c_str(), &err) != 0) {
    std::printf("%s: not written: %s\n", c.name, err.reason);
    return false;
  }
  return true;
}

bool Check(const std::string& dir, const ClassCase& c) {
  MsgTextError err{};
  MsgPtr msg(MA_ReadMsgFile(PathOf(dir, c).c_str(), &err));
  if (!msg) {
    std::printf("%s: %d:%d: %s\n", c.name, err.line, err.column, err.reason);
    return false;
  }
  std::unique_ptr<CMsgBase> read = c.make();
  if (read->Load(msg.get()) != 0) {
    std::printf("%s: Load: %s\n", c.name, read->errtext.ToStr());
    return false;
  }
  std::unique_ptr<CMsgBase> original = Original(c);
  if (!original || DumpOf(*read) != DumpOf(*original)) {
    std::printf("%s: the object read differs from the one written\n", c.name);
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 || (std::strcmp(argv[1], "write") != 0 && std::strcmp(argv[1], "check") != 0)) {
    std::fprintf(stderr, "usage: msgfile_exchange write|check DIR\n");
    return 2;
  }
  const bool write = std::strcmp(argv[1], "write") == 0;
  int bad = 0;
  for (const ClassCase& c : AllClasses()) bad += !(write ? Write(argv[2], c) : Check(argv[2], c));
  std::printf("msgfile_exchange %s: %zu classes, %d failed\n", argv[1], AllClasses().size(), bad);
  return bad ? 1 : 0;
}
