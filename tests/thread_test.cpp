// Several threads build, write, load, dump and copy objects of their own at
// the same time. They share only what the runtime shares: the dictionary,
// first used here by all of them at once.
#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "ClassCases.h"
#include "TestSupport.h"

using namespace testing_support;

TEST(Threads, WorkOnTheirOwnObjectsWithOneDictionary) {
  const std::vector<ClassCase>& classes = AllClasses();
  constexpr int kThreads = 4;
  std::atomic<int> ready{0};
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      ready.fetch_add(1);
      while (ready.load() < kThreads) {
      }
      // Each thread takes every fourth class, starting at its own.
      for (size_t i = static_cast<size_t>(t); i < classes.size(); i += kThreads) {
        const ClassCase& c = classes[i];
        MsgPtr sample = BuildSample(c.number, true, 1, static_cast<unsigned>(i));
        std::unique_ptr<CMsgBase> obj = c.make();
        std::unique_ptr<CMsgBase> copy = c.make();
        bool ok = obj->Load(sample.get()) == 0;
        c.copy(*copy, *obj);
        MsgPtr back(copy->ToMsg());
        ok = ok && back && Text(back.get()) == Text(sample.get()) && DumpOf(*copy) == DumpOf(*obj);
        if (!ok) failures.fetch_add(1);
      }
    });
  }
  for (std::thread& th : threads) th.join();
  EXPECT_EQ(failures.load(), 0);
}
