// The history of a git work tree, read in one streaming pass of
// "git log --numstat": per commit its time and author, per changed file its
// added and removed lines, with renames followed to the file's present path.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace quorvel {

// What git says of the folder: whether it lies in a work tree with commits.
struct TGitState {
  bool gitFound = false;
  bool workTree = false;
  bool bare = false;
  bool shallow = false;
  // The folder's path below the work tree's top, "" at the top itself.
  std::string prefix;
  std::string head;  // the commit checked out; empty without commits
};

// Asks git about `folder`. `git` is the program to run.
TGitState inspectGitFolder(const std::string& folder, const std::string& git = "git");

// Reads the log of `git log --numstat -z` in the format below, oldest
// renames followed: a change to a path that was later renamed is reported
// under the path the file has at the newest commit.
class TGitLogReader {
 public:
  // The log's format option: a header of hash, author time and author.
  static const char* formatOption() { return "--format=%x01%H%x02%at%x02%aE"; }

  struct Commit {
    std::string_view hash;
    int64_t time = 0;
    std::string_view author;
  };
  std::function<void(const Commit&)> onCommit;
  // A file changed by the last commit: its present path, lines added and
  // removed (0 for a binary file).
  std::function<void(const std::string& path, uint64_t added, uint64_t removed)> onChange;

  // Feeds the next bytes of the log; chunks may end anywhere.
  void feed(const char* data, size_t size);
  // The end of the log.
  void finish();
  // The path a file has now, of a path it had in the commit being read.
  std::string presentPath(const std::string& path) const;

 private:
  void token(std::string_view t);
  std::string m_Pending;
  // A rename's numbers wait for its two paths.
  int m_RenamePaths = 0;
  uint64_t m_Added = 0, m_Removed = 0;
  std::string m_RenameFrom;
  // Old path to the path it took later, as the log reaches older commits.
  std::unordered_map<std::string, std::string> m_RenamedTo;
};

// Runs git's log in `folder` and feeds the reader; `since` limits the
// window (empty: everything). `below` limits it to the folder where that is
// not the whole work tree. False with `error` set when git failed.
bool readGitLog(const std::string& folder, const std::string& since, bool below, TGitLogReader& reader,
                std::string& error, const std::string& git = "git");

}  // namespace quorvel
