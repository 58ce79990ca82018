// Every input of the fuzzing corpus, run once in every build: what the
// fuzzer once found stays found.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "FuzzHarness.h"

TEST(FuzzCorpus, EveryInputRunsClean) {
  namespace fs = std::filesystem;
  int inputs = 0;
  for (const fs::directory_entry& entry : fs::directory_iterator(PRICEMSG_FUZZ_CORPUS)) {
    std::ifstream file(entry.path(), std::ios::binary);
    std::vector<uint8_t> data((std::istreambuf_iterator<char>(file)),
                              std::istreambuf_iterator<char>());
    SCOPED_TRACE(entry.path().filename().string());
    fuzzing::RunOne(data.data(), data.size());
    ++inputs;
  }
  EXPECT_GT(inputs, 0);
}
