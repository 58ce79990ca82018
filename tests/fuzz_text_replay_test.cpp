// Every seed of the fuzzers of outside text, run once in every build: what
// a fuzzer once found stays found.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "TextFuzz.h"

namespace {

// Runs `step` on every file of the corpus directory `name` of tests/fuzz.
void Replay(const char* name, void (*step)(const uint8_t*, size_t)) {
  namespace fs = std::filesystem;
  int inputs = 0;
  for (const fs::directory_entry& entry :
       fs::directory_iterator(fs::path(PRICEMSG_FUZZ_DIR) / name)) {
    std::ifstream file(entry.path(), std::ios::binary);
    std::vector<uint8_t> data((std::istreambuf_iterator<char>(file)),
                              std::istreambuf_iterator<char>());
    SCOPED_TRACE(entry.path().filename().string());
    step(data.data(), data.size());
    ++inputs;
  }
  EXPECT_GT(inputs, 0) << name;
}

}  // namespace

TEST(FuzzTextCorpus, MessageTexts) { Replay("corpus-msgtext", fuzzing::ReadText); }

TEST(FuzzTextCorpus, MessageFiles) { Replay("corpus-msgfile", fuzzing::ReadFile); }

TEST(FuzzTextCorpus, JsonMessageFiles) { Replay("corpus-msgjson", fuzzing::ReadJson); }

#ifdef PRICEMSG_FUZZ_CATALOGUE
TEST(FuzzTextCorpus, CatalogueCommandLines) { Replay("corpus-catalogue", fuzzing::RunCatalogue); }
#endif
