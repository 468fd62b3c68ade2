// Work shared between the calling thread and one helper thread.
#pragma once

#include <malloc.h>

#include <atomic>
#include <cstddef>
#include <exception>
#include <system_error>
#include <thread>
#include <vector>

namespace quorvel {

// Runs `beside` on a second thread and `here` on this one, or both here
// when no thread can be had; what `beside` throws is thrown here once
// both are done.
template <class Beside, class Here>
void runBeside(Beside beside, Here here) {
  std::exception_ptr thrown;
  auto guarded = [&] {
    try {
      beside();
    } catch (...) {
      thrown = std::current_exception();
    }
  };
  std::thread helper;
  try {
    helper = std::thread(guarded);
  } catch (const std::system_error&) {
    // Without a second thread this one does both.
  }
  try {
    here();
  } catch (...) {
    if (helper.joinable()) helper.join();
    throw;
  }
  if (helper.joinable())
    helper.join();
  else
    guarded();
  if (thrown) std::rethrow_exception(thrown);
}

// Runs work(task, worker) once for each task below `count`: this thread
// (worker 0) and a helper (worker 1) each take the lowest task not yet
// taken, so tasks start in ascending order. With one task, or without a
// second thread, this one takes them all. Gives what each task threw,
// null where it ended.
template <class Work>
std::vector<std::exception_ptr> shareTasks(size_t count, Work work) {
  std::vector<std::exception_ptr> thrown(count);
  std::atomic<size_t> next{0};
  auto take = [&](unsigned worker) {
    for (size_t task = next++; task < count; task = next++) {
      try {
        work(task, worker);
      } catch (...) {
        thrown[task] = std::current_exception();
      }
    }
  };
  std::thread helper;
  try {
    if (count > 1) helper = std::thread(take, 1u);
  } catch (const std::system_error&) {
    // This thread takes every task.
  }
  take(0);
  if (helper.joinable()) helper.join();
  return thrown;
}

// As shareTasks, then throws what the lowest task that failed threw.
template <class Work>
void runTasks(size_t count, Work work) {
  for (const std::exception_ptr& e : shareTasks(count, std::move(work)))
    if (e) std::rethrow_exception(e);
}

// Memory that work on the helper thread freed stays in that thread's heap
// blocks, in many small pieces, until it is handed back to the system:
// called after such work, before the next step takes as much again.
inline void returnFreedMemory() { malloc_trim(0); }

}  // namespace quorvel
