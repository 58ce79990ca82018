// Helpers of the tests of message texts and files in every form: a
// directory of the running test's own, a check that an operation leaves no
// block behind, and sweeps that fail each allocation of a read or a write in
// turn.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "MsgText.h"
#include "TestSupport.h"

namespace testing_support {

// A directory of the running test's own under the temporary directory,
// removed with everything in it at the end.
struct TempDir {
  std::filesystem::path path =
      std::filesystem::path(::testing::TempDir()) /
      (std::string(::testing::UnitTest::GetInstance()->current_test_info()->test_suite_name()) +
       "-" + ::testing::UnitTest::GetInstance()->current_test_info()->name());
  TempDir() { std::filesystem::create_directories(path); }
  ~TempDir() { std::filesystem::remove_all(path); }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  // The path of `name` in it.
  std::string Path(const std::string& name) const { return (path / name).string(); }
  // Writes `content` to the file `name` in it; gives its path.
  std::string File(const std::string& name, const std::string& content) const {
    std::ofstream(Path(name), std::ios::binary) << content;
    return Path(name);
  }

  // The names in it, sorted.
  std::vector<std::string> Names() const {
    std::vector<std::string> out;
    for (const auto& e : std::filesystem::directory_iterator(path)) {
      out.push_back(e.path().filename());
    }
    std::sort(out.begin(), out.end());
    return out;
  }
};

// Runs `f` on a thread of its own, which starts with no spare message
// blocks, and tells whether every block it allocated is freed again.
inline bool LeavesNothing(const std::function<void()>& f) {
  MA_GetMsgDic();  // built on the first call, and kept
  const long live = FailingAlloc::Live();
  std::thread(f).join();
  return FailingAlloc::Live() == live;
}

// Fails each allocation of `read` in turn: a read that meets the failure
// gives no tree, and says that memory ran out (in the reader or in the
// runtime); one that does not gives the tree that `shown` turns into `want`.
// No run leaves a block behind. Gives the number of failures met.
inline long SweepReads(const std::function<MsgPtr(MsgTextError*)>& read,
                       const std::function<std::string(CMsg*)>& shown, const std::string& want) {
  return ForEachAllocationFailure([&](long n) {
    EXPECT_TRUE(LeavesNothing([&] {
      MsgTextError err{};
      FailingAlloc::FailAt(n);
      MsgPtr msg = read(&err);
      FailingAlloc::Off();
      if (FailingAlloc::Fired()) {
        EXPECT_FALSE(msg) << "allocation " << n;
        EXPECT_EQ(err.code, MSGTEXT_E_NOMEM) << "allocation " << n << ": " << err.reason;
        EXPECT_TRUE(std::strcmp(err.reason, "out of memory") == 0 ||
                    std::strstr(err.reason, "the runtime ran out of memory"))
            << "allocation " << n << ": " << err.reason;
      } else {
        ASSERT_TRUE(msg) << err.reason;
        EXPECT_EQ(shown(msg.get()), want);
      }
    })) << "allocation "
        << n;
  });
}

// Fails each allocation of `write` (which appends to its output) in turn: a
// write that meets the failure gives MSGTEXT_E_NOMEM or MSGTEXT_E_RUNTIME
// and leaves its output as it was; one that does not appends `want`. No run
// leaves a block behind. Gives the number of failures met.
inline long SweepWrites(const std::function<int(std::string*)>& write, const std::string& want) {
  return ForEachAllocationFailure([&](long n) {
    EXPECT_TRUE(LeavesNothing([&] {
      std::string out = "kept";
      FailingAlloc::FailAt(n);
      const int rc = write(&out);
      FailingAlloc::Off();
      if (FailingAlloc::Fired()) {
        EXPECT_EQ(rc, MSGTEXT_E_NOMEM) << "allocation " << n;
        EXPECT_EQ(out, "kept") << "allocation " << n;
      } else {
        EXPECT_EQ(out, "kept" + want);
      }
    })) << "allocation "
        << n;
  });
}

}  // namespace testing_support
