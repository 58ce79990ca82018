// The catalogue tool's command line, in-process. The first byte chooses
// the form of the rest:
// - odd: the rest is a message file, and the command line is
//   "file <that file>";
// - even: the rest is the arguments, separated by NUL bytes (at most 8).
//   The tool reads and writes no file but the fuzzer's own: the argument of
//   "file" is written to a file, whose path takes its place, and so is the
//   input of "convert", whose output goes to the standard output in the
//   form that its output argument names.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "Catalogue.h"
#include "MsgText.h"
#include "TextFuzz.h"

namespace fuzzing {

void RunCatalogue(const uint8_t* data, size_t size) {
  if (size == 0) return;
  const std::string rest(reinterpret_cast<const char*>(data) + 1, size - 1);
  const std::string path = std::string(ScratchDir()) + "/catalogue.msg";
  std::vector<std::string> args = {"pricemsg-catalogue"};
  if (data[0] % 2) {
    args.insert(args.end(), {"file", rest});
  } else {
    for (size_t at = 0; args.size() < 9;) {
      const size_t nul = std::min(rest.find('\0', at), rest.size());
      args.push_back(rest.substr(at, nul - at));
      if (nul == rest.size()) break;
      at = nul + 1;
    }
  }
  const bool file = args.size() == 3 && args[1] == "file";
  if (file) {
    Store(path, args[2].data(), args[2].size());
    args[2] = path;
  } else if (args.size() > 1 && args[1] == "file") {
    args.resize(2);  // a wrong count of arguments, without a path to read
  } else if (args.size() == 4 && args[1] == "convert") {
    const bool toJson = args[3].size() >= 5 && args[3].compare(args[3].size() - 5, 5, ".json") == 0;
    const std::string in = std::string(ScratchDir()) + (toJson ? "/convert.msg" : "/convert.json");
    Store(in, args[2].data(), args[2].size());
    args[2] = in;
    args[3] = "-";
  } else if (args.size() > 1 && args[1] == "convert") {
    args.resize(2);
  }
  std::vector<const char*> argv;
  for (const std::string& a : args) argv.push_back(a.c_str());
  // What the tool prints, and what it tells of errors, into memory.
  char *outData = nullptr, *errData = nullptr;
  size_t outSize = 0, errSize = 0;
  FILE* out = open_memstream(&outData, &outSize);
  FILE* err = open_memstream(&errData, &errSize);
  Check(out && err);
  const int status = catalogue::Run(static_cast<int>(argv.size()), argv.data(), out, err);
  std::fclose(out);
  std::fclose(err);
  const std::string printed(outData, outSize), told(errData, errSize);
  std::free(outData);
  std::free(errData);
  Check(status >= 0 && status <= 2);
  Check(status == 0 ? told.empty() : printed.empty() && !told.empty());
  if (!file) return;
  // It prints the writer's text of the tree that the file reader takes, or
  // the reader's error at its place.
  MsgTextError e{};
  std::unique_ptr<CMsg> msg(MA_ReadMsgFile(path.c_str(), &e));
  Check((status == 0) == (msg != nullptr));
  if (msg) {
    std::string text;
    Check(MA_WriteMsgText(msg.get(), &text, &e) == MSGTEXT_OK);
    Check(printed == text);
  } else {
    const std::string where =
        ":" + std::to_string(e.line) + ":" + std::to_string(e.column) + ": " + e.reason;
    Check(told.find(where) != std::string::npos);
  }
}

}  // namespace fuzzing
