#include "MGitHistory.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <sstream>

namespace quorvel {

namespace {

std::string shellQuote(const std::string& s) {
  std::string out = "'";
  for (char c : s) {
    if (c == '\'') out += "'\\''";
    else out += c;
  }
  return out + "'";
}

// The output and exit status of a command; -1 when it could not be started.
int capture(const std::string& command, std::string& out) {
  out.clear();
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) return -1;
  char buffer[4096];
  size_t n;
  while ((n = std::fread(buffer, 1, sizeof buffer, pipe)) > 0) out.append(buffer, n);
  const int rc = ::pclose(pipe);
  return WIFEXITED(rc) ? WEXITSTATUS(rc) : -1;
}

uint64_t number(std::string_view s) {
  uint64_t v = 0;
  for (char c : s) {
    if (c < '0' || c > '9') return 0;  // "-" of a binary file
    v = v * 10 + static_cast<uint64_t>(c - '0');
  }
  return v;
}

}  // namespace

TGitState inspectGitFolder(const std::string& folder, const std::string& git) {
  TGitState state;
  const std::string base = shellQuote(git) + " -C " + shellQuote(folder) + " ";
  std::string out;
  const int rc = capture(base + "--version 2>/dev/null", out);
  state.gitFound = rc == 0 && out.rfind("git version", 0) == 0;
  if (!state.gitFound) return state;
  if (capture(base + "rev-parse --is-inside-work-tree --is-bare-repository --is-shallow-repository 2>/dev/null",
              out) != 0)
    return state;
  std::istringstream lines(out);
  std::string inside, bare, shallow;
  lines >> inside >> bare >> shallow;
  state.workTree = inside == "true";
  state.bare = bare == "true";
  state.shallow = shallow == "true";
  if (state.workTree && capture(base + "rev-parse --show-prefix 2>/dev/null", out) == 0) {
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    state.prefix = out;
  }
  if (capture(base + "rev-parse --verify -q HEAD 2>/dev/null", out) == 0) {
    while (!out.empty() && (out.back() == '\n' || out.back() == '\r')) out.pop_back();
    state.head = out;
  }
  return state;
}

void TGitLogReader::feed(const char* data, size_t size) {
  size_t start = 0;
  for (size_t i = 0; i < size; ++i) {
    if (data[i] != '\0') continue;
    if (m_Pending.empty()) {
      token(std::string_view(data + start, i - start));
    } else {
      m_Pending.append(data + start, i - start);
      token(m_Pending);
      m_Pending.clear();
    }
    start = i + 1;
  }
  m_Pending.append(data + start, size - start);
}

void TGitLogReader::finish() {
  if (!m_Pending.empty()) token(m_Pending);
  m_Pending.clear();
}

std::string TGitLogReader::presentPath(const std::string& path) const {
  auto it = m_RenamedTo.find(path);
  return it == m_RenamedTo.end() ? path : it->second;
}

// One field between NULs: a commit's header, a change "added TAB removed
// TAB path", or, after a change with an empty path, the old and the new path
// of a rename.
void TGitLogReader::token(std::string_view t) {
  if (m_RenamePaths == 2) {
    m_RenameFrom = std::string(t);
    m_RenamePaths = 1;
    return;
  }
  if (m_RenamePaths == 1) {
    m_RenamePaths = 0;
    const std::string now = presentPath(std::string(t));
    if (onChange) onChange(now, m_Added, m_Removed);
    if (m_RenameFrom != now) m_RenamedTo[m_RenameFrom] = now;
    return;
  }
  while (!t.empty() && t.front() == '\n') t.remove_prefix(1);
  if (t.empty()) return;
  if (t.front() == '\x01') {
    t.remove_prefix(1);
    Commit c;
    const size_t a = t.find('\x02');
    const size_t b = a == std::string_view::npos ? a : t.find('\x02', a + 1);
    if (b == std::string_view::npos) return;
    c.hash = t.substr(0, a);
    c.time = static_cast<int64_t>(number(t.substr(a + 1, b - a - 1)));
    c.author = t.substr(b + 1);
    if (onCommit) onCommit(c);
    return;
  }
  const size_t tab1 = t.find('\t');
  const size_t tab2 = tab1 == std::string_view::npos ? tab1 : t.find('\t', tab1 + 1);
  if (tab2 == std::string_view::npos) return;
  m_Added = number(t.substr(0, tab1));
  m_Removed = number(t.substr(tab1 + 1, tab2 - tab1 - 1));
  const std::string_view path = t.substr(tab2 + 1);
  if (path.empty()) {
    m_RenamePaths = 2;
    return;
  }
  if (onChange) onChange(presentPath(std::string(path)), m_Added, m_Removed);
}

bool readGitLog(const std::string& folder, const std::string& since, bool below, TGitLogReader& reader,
                std::string& error, const std::string& git) {
  // git's complaints go to a file of their own: a warning amid the log
  // would read as a change.
  char errors[] = "/tmp/quorvel-git-XXXXXX";
  const int fd = ::mkstemp(errors);
  if (fd < 0) {
    error = "git could not be started: no temporary file";
    return false;
  }
  ::close(fd);
  std::string command = shellQuote(git) + " -C " + shellQuote(folder) +
                        " -c core.quotepath=false log --numstat -z " + TGitLogReader::formatOption();
  if (!since.empty()) command += " " + shellQuote("--since=" + since);
  // Paths below the folder, relative to it: a filter that costs where the
  // folder is the whole tree.
  if (below) command += " --relative -- .";
  command += " 2>" + shellQuote(errors);
  FILE* pipe = ::popen(command.c_str(), "r");
  if (!pipe) {
    ::unlink(errors);
    error = "git could not be started";
    return false;
  }
  std::vector<char> buffer(1 << 16);
  size_t n;
  while ((n = std::fread(buffer.data(), 1, buffer.size(), pipe)) > 0) reader.feed(buffer.data(), n);
  reader.finish();
  const int rc = ::pclose(pipe);
  std::string complaint;
  if (FILE* f = std::fopen(errors, "r")) {
    char line[512] = {0};
    if (std::fgets(line, sizeof line, f)) complaint = line;
    std::fclose(f);
  }
  ::unlink(errors);
  while (!complaint.empty() && (complaint.back() == '\n' || complaint.back() == '\r')) complaint.pop_back();
  if (WIFEXITED(rc) && WEXITSTATUS(rc) == 0) return true;
  error = WIFEXITED(rc) && WEXITSTATUS(rc) == 127 ? "git is not available" : "git log failed: " + complaint;
  return false;
}

}  // namespace quorvel
