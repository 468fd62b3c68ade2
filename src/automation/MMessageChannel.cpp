// The message channel over local stream sockets. Each end listens at
// "<dir>/<number>.sock", where the program's number is its process id. A
// message is a 4-byte little-endian length and that many bytes of UTF-8;
// the receiver answers each with a 4-byte little-endian signed result, 0
// when it has taken the message. A connection may carry many messages.
#include "automation/MMessageServer.h"

#include <pybind11/pybind11.h>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>
#include <wx/app.h>

#include <atomic>
#include <chrono>
#include <optional>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <thread>
#include <vector>

#include "engine/MFlowObjects.h"
#include "engine/MMediator.h"

namespace quorvel {

namespace {

std::shared_ptr<TMessageServer> g_Server;

constexpr uint32_t kMaxMessage = 16u << 20;
constexpr int kSendTimeoutMs = 5000;
// A frame has this long to arrive whole once it has begun; a connection
// that says nothing for kIdleTimeoutMs is closed.
constexpr int kFrameTimeoutMs = 5000;
constexpr int kIdleTimeoutMs = 60000;
constexpr int kPollMs = 250;
constexpr size_t kMaxPeers = 512;
using Clock = std::chrono::steady_clock;

std::string errnoText() { return std::strerror(errno); }

// Valid UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool validUtf8(const std::string& s) {
  const auto* p = reinterpret_cast<const unsigned char*>(s.data());
  const auto* end = p + s.size();
  while (p < end) {
    const unsigned char c = *p;
    int n = 0;
    uint32_t cp = 0;
    if (c < 0x80) {
      ++p;
      continue;
    } else if ((c & 0xE0) == 0xC0) {
      n = 1;
      cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      n = 2;
      cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      n = 3;
      cp = c & 0x07;
    } else {
      return false;
    }
    if (end - p <= n) return false;
    for (int i = 1; i <= n; ++i) {
      if ((p[i] & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (p[i] & 0x3F);
    }
    static const uint32_t least[] = {0, 0x80, 0x800, 0x10000};
    if (cp < least[n] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
    p += n + 1;
  }
  return true;
}

void putLe32(unsigned char* b, uint32_t v) {
  for (int i = 0; i < 4; ++i) b[i] = static_cast<unsigned char>(v >> (8 * i));
}

uint32_t getLe32(const unsigned char* b) {
  return static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 | static_cast<uint32_t>(b[2]) << 16 |
         static_cast<uint32_t>(b[3]) << 24;
}

// Reads exactly n bytes, waiting at most `timeoutMs` for each part (-1:
// no limit); false at the end of the stream, on an error or a timeout.
bool readAll(int fd, void* buffer, size_t n, int timeoutMs) {
  auto* p = static_cast<char*>(buffer);
  while (n > 0) {
    pollfd pfd{fd, POLLIN, 0};
    const int ready = poll(&pfd, 1, timeoutMs);
    if (ready <= 0) {
      if (ready == 0) errno = ETIMEDOUT;
      if (ready < 0 && errno == EINTR) continue;
      return false;
    }
    const ssize_t got = ::read(fd, p, n);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) {
      if (got == 0) errno = ECONNRESET;
      return false;
    }
    p += got;
    n -= static_cast<size_t>(got);
  }
  return true;
}

bool writeAll(int fd, const void* buffer, size_t n) {
  const auto* p = static_cast<const char*>(buffer);
  while (n > 0) {
    const ssize_t put = ::send(fd, p, n, MSG_NOSIGNAL);
    if (put < 0 && errno == EINTR) continue;
    if (put <= 0) return false;
    p += put;
    n -= static_cast<size_t>(put);
  }
  return true;
}

sockaddr_un addressOf(const std::string& path) {
  sockaddr_un a{};
  a.sun_family = AF_UNIX;
  if (path.size() >= sizeof(a.sun_path)) throw std::runtime_error("socket path too long: " + path);
  std::memcpy(a.sun_path, path.c_str(), path.size() + 1);
  return a;
}

}  // namespace

std::string channelFolder() {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime && *runtime) return std::string(runtime) + "/quorvel";
  return "/tmp/quorvel-" + std::to_string(getuid());
}

std::string channelSocket(long number) { return channelFolder() + "/" + std::to_string(number) + ".sock"; }

namespace {

// Makes the folder of the sockets, or refuses one that another user owns
// or that others may enter.
void ensureChannelFolder(const std::string& dir) {
  if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) throw std::runtime_error(dir + ": " + errnoText());
  struct stat st {};
  if (::lstat(dir.c_str(), &st) != 0) throw std::runtime_error(dir + ": " + errnoText());
  if (!S_ISDIR(st.st_mode)) throw std::runtime_error(dir + " is not a folder");
  if (st.st_uid != getuid()) throw std::runtime_error(dir + " belongs to another user");
  if ((st.st_mode & 077) != 0) throw std::runtime_error(dir + " is open to other users");
}

class TSocketServer : public TMessageServer {
 public:
  explicit TSocketServer(std::optional<int> sendto) : m_SendTo(sendto) {
    const std::string dir = channelFolder();
    ensureChannelFolder(dir);
    m_Path = channelSocket(windowHandle());
    // A socket left by a dead process of the same number goes.
    ::unlink(m_Path.c_str());
    m_Listen = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (m_Listen < 0) throw std::runtime_error("socket: " + errnoText());
    const sockaddr_un a = addressOf(m_Path);
    if (::bind(m_Listen, reinterpret_cast<const sockaddr*>(&a), sizeof(a)) != 0 || ::chmod(m_Path.c_str(), 0600) != 0 ||
        ::listen(m_Listen, SOMAXCONN) != 0) {
      const std::string why = errnoText();
      ::close(m_Listen);
      throw std::runtime_error(m_Path + ": " + why);
    }
    if (::pipe2(m_Wake, O_CLOEXEC) != 0) {
      ::close(m_Listen);
      throw std::runtime_error("pipe: " + errnoText());
    }
    m_Thread = std::thread([this] { serve(); });
  }
  ~TSocketServer() override { close(); }

  long windowHandle() const override { return static_cast<long>(getpid()); }

  void sendMessageToListener(const std::string& message) override {
    if (!m_SendTo) return;
    const int to = *m_SendTo;
    auto fail = [&](const std::string& cause) {
      throw TFlowError("Error while sending message '" + message + "' to " + std::to_string(to) + ": " + cause);
    };
    const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (fd < 0) fail(errnoText());
    struct Closer {
      int fd;
      ~Closer() { ::close(fd); }
    } closer{fd};
    // The limit holds from the start: a listener whose queue of
    // connections is full would otherwise keep connect waiting for ever.
    timeval tv{kSendTimeoutMs / 1000, 0};
    ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof(tv));
    const sockaddr_un a = addressOf(channelSocket(to));
    if (::connect(fd, reinterpret_cast<const sockaddr*>(&a), sizeof(a)) != 0) {
      if (errno == EAGAIN || errno == EINPROGRESS || errno == ETIMEDOUT) fail("the listener accepts no connection");
      fail("no listener (" + errnoText() + ")");
    }
    unsigned char head[4];
    putLe32(head, static_cast<uint32_t>(message.size()));
    if (!writeAll(fd, head, 4) || !writeAll(fd, message.data(), message.size())) fail(errnoText());
    unsigned char answer[4];
    if (!readAll(fd, answer, 4, kSendTimeoutMs)) fail(errno == ETIMEDOUT ? "no answer within 5 seconds" : errnoText());
    const auto result = static_cast<int32_t>(getLe32(answer));
    if (result != 0) fail(std::to_string(result));
  }

  void close() override {
    if (m_Closed.exchange(true)) return;
    const char byte = 0;
    if (::write(m_Wake[1], &byte, 1) < 0) {
      // The thread also ends when the listening socket is shut.
    }
    ::shutdown(m_Listen, SHUT_RDWR);
    if (m_Thread.joinable()) m_Thread.join();
    ::close(m_Listen);
    ::close(m_Wake[0]);
    ::close(m_Wake[1]);
    ::unlink(m_Path.c_str());
  }

 private:
  std::optional<int> m_SendTo;
  std::string m_Path;
  int m_Listen = -1;
  int m_Wake[2] = {-1, -1};
  std::atomic<bool> m_Closed{false};
  std::thread m_Thread;

  // One peer's connection and what has come of its present frame.
  struct TPeer {
    int fd = -1;
    std::string buffer;  // the bytes of the frame so far, length first
    Clock::time_point lastheard;
    std::optional<Clock::time_point> framestart;  // when the length came
  };

  // Accepts connections and reads their messages, every connection on its
  // own: a peer that says nothing, or sends half a frame, holds no other
  // back. Each whole message is answered and then handed to the main
  // thread, which queues it.
  void serve() {
    std::vector<TPeer> peers;
    auto drop = [&](size_t i) {
      ::close(peers[i].fd);
      peers[i] = std::move(peers.back());
      peers.pop_back();
    };
    while (!m_Closed) {
      std::vector<pollfd> pfd;
      pfd.reserve(peers.size() + 2);
      pfd.push_back({m_Wake[0], POLLIN, 0});
      pfd.push_back({m_Listen, POLLIN, 0});
      for (const auto& peer : peers) pfd.push_back({peer.fd, POLLIN, 0});
      const int ready = ::poll(pfd.data(), pfd.size(), peers.empty() ? -1 : kPollMs);
      if (ready < 0 && errno != EINTR) break;
      if (m_Closed || (pfd[0].revents & POLLIN)) break;
      const auto now = Clock::now();
      // Peers first, from the back, so that dropping one keeps the indexes
      // of those still to look at.
      for (size_t i = peers.size(); i-- > 0;) {
        const short events = pfd[i + 2].revents;
        if (events & (POLLIN | POLLHUP | POLLERR)) {
          if (!readFrom(peers[i], now)) {
            drop(i);
            continue;
          }
        }
        TPeer& peer = peers[i];
        if (peer.framestart && now - *peer.framestart > std::chrono::milliseconds(kFrameTimeoutMs)) {
          report("Message channel: a message ended early");
          drop(i);
        } else if (!peer.framestart && now - peer.lastheard > std::chrono::milliseconds(kIdleTimeoutMs)) {
          drop(i);
        }
      }
      if (pfd[1].revents & POLLIN) {
        const int fd = ::accept4(m_Listen, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK);
        if (fd < 0) continue;
        ucred peer{};
        socklen_t len = sizeof(peer);
        if (::getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &len) != 0 || peer.uid != getuid()) {
          report("Refused a connection of another user");
          ::close(fd);
          continue;
        }
        // With too many connections open, the one silent longest goes.
        if (peers.size() >= kMaxPeers) {
          size_t oldest = 0;
          for (size_t i = 1; i < peers.size(); ++i)
            if (peers[i].lastheard < peers[oldest].lastheard) oldest = i;
          drop(oldest);
        }
        peers.push_back(TPeer{fd, {}, now, std::nullopt});
      }
    }
    for (auto& peer : peers) ::close(peer.fd);
  }

  // Reads what a peer has sent and answers and hands on every whole
  // message in it; false when the connection is to go.
  bool readFrom(TPeer& peer, Clock::time_point now) {
    char chunk[65536];
    const ssize_t got = ::read(peer.fd, chunk, sizeof(chunk));
    if (got < 0) return errno == EINTR || errno == EAGAIN || errno == EWOULDBLOCK;
    if (got == 0) {
      if (!peer.buffer.empty()) report("Message channel: a message ended early");
      return false;
    }
    peer.lastheard = now;
    peer.buffer.append(chunk, static_cast<size_t>(got));
    while (peer.buffer.size() >= 4) {
      const uint32_t n = getLe32(reinterpret_cast<const unsigned char*>(peer.buffer.data()));
      if (n > kMaxMessage) {
        report("Message channel: a message of " + std::to_string(n) + " bytes is too long");
        return false;
      }
      if (!peer.framestart) peer.framestart = now;
      if (peer.buffer.size() < 4 + static_cast<size_t>(n)) return true;
      std::string text = peer.buffer.substr(4, n);
      peer.buffer.erase(0, 4 + static_cast<size_t>(n));
      peer.framestart.reset();
      if (!validUtf8(text)) {
        report("Message channel: a message that is not UTF-8");
        return false;
      }
      // The answer goes first: a peer that can no longer hear it was told
      // nothing, and its command does not run.
      unsigned char answer[4];
      putLe32(answer, 0);
      if (!writeAll(peer.fd, answer, 4)) return false;
      hand(text);
    }
    if (!peer.buffer.empty() && !peer.framestart) peer.framestart = now;
    return true;
  }

  // On the main thread: what OnMessage does with a message.
  static void hand(const std::string& text) {
    auto queue = [text] {
      logDebug("Recv command: '" + text + "'");
      me.appendCommand(text);
    };
    if (wxTheApp)
      wxTheApp->CallAfter(queue);
  }
  static void report(const std::string& text) {
    if (wxTheApp) wxTheApp->CallAfter([text] { logError(text); });
  }
};

}  // namespace

TMessageServer* messageServer() { return g_Server.get(); }
void setMessageServer(std::shared_ptr<TMessageServer> server) { g_Server = std::move(server); }

void startMessageChannel(std::optional<int> sendto) {
  try {
    auto server = std::make_shared<TSocketServer>(sendto);
    setMessageServer(server);
    // Scripts reach it as me.server.
    me.server = TPyRef::borrow(pybind11::cast(server.get(), pybind11::return_value_policy::reference).ptr());
    if (sendto) logDebug("Sending messages to hwnd " + std::to_string(*sendto));
    logInfo("Listening to incoming messages");
  } catch (const std::exception& e) {
    logCriticalError(std::string("Could not start listening server: '") + e.what() + "'");
  }
}

}  // namespace quorvel
