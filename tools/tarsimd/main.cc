// tarsimd: the simulated kernel as a process of its own, shared by every process that connects
// (tarsim_connect, the preload library, tlkctl --kernel).  Seeded with the default chassis;
// --load replays the requests of a capture file into it before serving, and --save writes every
// request that it took (loaded ones included) as a capture file when it stops, so that a rig can
// start again from the state it left.  One line per session opened and closed on stderr; SIGTERM
// and SIGINT stop it cleanly.
#include <errno.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "core.h"
#include "server.h"
#include "socket_path.h"
#include "tarsim.hpp"
#include "tarsim/capture.h"

namespace {

void log_line(const char *line) {
  fprintf(stderr, "%s\n", line);
}

int usage(FILE *out) {
  fputs(
      "usage: tarsimd [--socket PATH] [--load FILE] [--save FILE] [--quiet]\n"
      "  --socket PATH  listen here (default: $XDG_RUNTIME_DIR/tarsimd.sock, else\n"
      "                 /tmp/tarsimd-<uid>.sock)\n"
      "  --load FILE    replay the requests of a capture file before serving\n"
      "  --save FILE    on exit, write every request taken as a capture file\n"
      "  --quiet        no line per session\n",
      out);
  return out == stdout ? 0 : 2;
}

// Replays the requests (the records written by the library) of a capture through one private
// session; what the kernel answers is dropped.
int load(const char *path) {
  FILE *f = fopen(path, "rb");
  if (f == nullptr) {
    fprintf(stderr, "tarsimd: %s: %s\n", path, strerror(errno));
    return 1;
  }
  std::vector<uint8_t> data;
  uint8_t chunk[65536];
  size_t got;
  while ((got = fread(chunk, 1, sizeof chunk, f)) > 0) data.insert(data.end(), chunk, chunk + got);
  fclose(f);
  tarsim_capture_reader reader;
  if (tarsim_capture_reader_init(&reader, data.data(), data.size()) != 0) {
    fprintf(stderr, "tarsimd: %s: %s\n", path, reader.error);
    return 1;
  }
  auto *core = tarsim::internal::Core::active();
  const int fd = core->open_session();
  if (fd < 0) return 1;
  tarsim::internal::Session *s = core->find(fd);
  tarsim_capture_message m;
  int r;
  size_t replayed = 0;
  while ((r = tarsim_capture_next(&reader, &m)) == 1) {
    if (m.direction != TARSIM_CAPTURE_TO_KERNEL) continue;
    (void)core->take_write(*s, m.bytes, m.length);
    ++replayed;
    // Drain the answers, so that the socket never fills.
    uint8_t sink[1 << 16];
    while (::recv(fd, sink, sizeof sink, MSG_DONTWAIT) > 0) {
    }
  }
  core->close_session(fd);
  if (r < 0) {
    fprintf(stderr, "tarsimd: %s: %s\n", path, reader.error);
    return 1;
  }
  fprintf(stderr, "tarsimd: replayed %zu requests from %s\n", replayed, path);
  return 0;
}

int save(const tarsim::Kernel &kernel, const char *path) {
  tarsim_capture_writer w;
  const auto &all = kernel.recorded();
  int err = tarsim_capture_writer_open(&w, path, all.empty() ? 0 : all.front().when_ns);
  if (err == 0) {
    for (const tarsim::Recorded &r : all) {
      if (r.to_kernel) {
        tarsim_capture_write(&w, TARSIM_CAPTURE_TO_KERNEL, r.session, r.when_ns, r.bytes.data(),
                             r.bytes.size());
      }
    }
    err = tarsim_capture_writer_close(&w);
  }
  if (err != 0) fprintf(stderr, "tarsimd: %s: %s\n", path, strerror(err));
  return err == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char **argv) {
  std::string socket_path = tarsimd::default_socket_path();
  const char *load_path = nullptr;
  const char *save_path = nullptr;
  bool quiet = false;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") return usage(stdout);
    if (arg == "--quiet") {
      quiet = true;
    } else if (i + 1 < argc && arg == "--socket") {
      socket_path = argv[++i];
    } else if (i + 1 < argc && arg == "--load") {
      load_path = argv[++i];
    } else if (i + 1 < argc && arg == "--save") {
      save_path = argv[++i];
    } else {
      return usage(stderr);
    }
  }
  // The stop signals are read from a descriptor by the loop, never handled in between.
  sigset_t stop;
  sigemptyset(&stop);
  sigaddset(&stop, SIGTERM);
  sigaddset(&stop, SIGINT);
  sigprocmask(SIG_BLOCK, &stop, nullptr);
  signal(SIGPIPE, SIG_IGN);
  const int stop_fd = signalfd(-1, &stop, SFD_CLOEXEC);
  // Each session costs the daemon two descriptors: take all the room the system allows.
  rlimit files{};
  if (getrlimit(RLIMIT_NOFILE, &files) == 0 && files.rlim_cur < files.rlim_max) {
    files.rlim_cur = files.rlim_max;
    setrlimit(RLIMIT_NOFILE, &files);
  }

  tarsim::Kernel kernel;
  // Only a save needs the record, which otherwise would grow with every message.
  if (save_path != nullptr) kernel.record(true);
  if (load_path != nullptr && load(load_path) != 0) return 1;
  tarsimd::Server server(kernel, quiet ? nullptr : log_line);
  if (const int err = server.listen(socket_path.c_str())) {
    fprintf(stderr, "tarsimd: cannot listen on %s: %s\n", socket_path.c_str(), strerror(err));
    return 1;
  }
  fprintf(stderr, "tarsimd: listening on %s\n", socket_path.c_str());
  const int err = server.run(stop_fd);
  ::unlink(socket_path.c_str());
  int result = err == 0 ? 0 : 1;
  if (save_path != nullptr && save(kernel, save_path) != 0) result = 1;
  fprintf(stderr, "tarsimd: stopped after %llu calls\n",
          static_cast<unsigned long long>(server.calls()));
  ::close(stop_fd);
  return result;
}
