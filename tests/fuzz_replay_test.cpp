// Every seed of the fuzzers, run once in every build: what a fuzzer once
// found stays found. Built twice: fuzz_text_replay_test replays the seeds of
// the entry points that take text from outside; fuzz_replay_test, on the
// stand-in, those of fuzz_load.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#ifdef PRICEMSG_FUZZ_LOAD
#include "FuzzHarness.h"
#else
#include "TextFuzz.h"
#endif

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

#ifdef PRICEMSG_FUZZ_LOAD
TEST(FuzzCorpus, EveryInputRunsClean) { Replay("corpus", fuzzing::RunOne); }
#else
TEST(FuzzTextCorpus, MessageTexts) { Replay("corpus-msgtext", fuzzing::ReadText); }

TEST(FuzzTextCorpus, MessageFiles) { Replay("corpus-msgfile", fuzzing::ReadFile); }

TEST(FuzzTextCorpus, JsonMessageFiles) { Replay("corpus-msgjson", fuzzing::ReadJson); }
#endif

#ifdef PRICEMSG_FUZZ_CATALOGUE
TEST(FuzzTextCorpus, CatalogueCommandLines) { Replay("corpus-catalogue", fuzzing::RunCatalogue); }
#endif
