// Tasks shared with a helper thread: each runs once, failures come back
// by task, and the first one is what a caller sees.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "base/MParallel.h"
#include "support/TestHelpers.h"

using namespace quorvel;
using quorvel::test::errorOf;

TEST(Parallel, EveryTaskRunsOnceAndTheLowestFailureIsThrown) {
  std::vector<int> runs(100, 0);
  std::vector<std::thread::id> by(100);
  auto thrown = shareTasks(runs.size(), [&](size_t k, unsigned) {
    ++runs[k];
    by[k] = std::this_thread::get_id();
    if (k == 40 || k == 70) throw std::runtime_error("task " + std::to_string(k));
  });
  for (size_t k = 0; k < runs.size(); ++k) {
    EXPECT_EQ(runs[k], 1) << k;
    EXPECT_EQ(thrown[k] != nullptr, k == 40 || k == 70) << k;
  }
  // Failures are thrown by task, whichever thread met them first: task
  // 40 fails only after task 70 has, on the other thread.
  std::atomic<bool> later{false};
  EXPECT_EQ(errorOf([&] {
              runTasks(runs.size(), [&](size_t k, unsigned) {
                if (k == 70) {
                  later = true;
                  throw std::runtime_error("task 70");
                }
                if (k != 40) return;
                const auto until = std::chrono::steady_clock::now() + std::chrono::seconds(5);
                while (!later && std::chrono::steady_clock::now() < until) std::this_thread::yield();
                throw std::runtime_error("task 40");
              });
            }),
            "task 40");
  EXPECT_TRUE(later);
  // One task is run here, with no helper.
  std::thread::id where;
  unsigned worker = 9;
  runTasks(1, [&](size_t, unsigned w) {
    where = std::this_thread::get_id();
    worker = w;
  });
  EXPECT_EQ(where, std::this_thread::get_id());
  EXPECT_EQ(worker, 0u);
}
