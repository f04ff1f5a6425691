// tlkctl demo, asynchronous step: a change made by one session reaches a second session that
// listens for it, and not a third that doesn't.
#include "commands.h"
#include "tarsim.hpp"

namespace tlkctl {
namespace {

struct Ear {
  const char *name;
  unsigned heard = 0;
};

int heard_handler(tarvik_cookie *cookie, void *arg, void *msg, uintptr_t) {
  auto *ear = static_cast<Ear *>(arg);
  printf("  %s hears: ", ear->name);
  print_notification(stdout, msg);
  tarvik_msg_free(cookie, msg);
  ++ear->heard;
  return 0;
}

}  // namespace

int demo_async(tarsim::Kernel &kernel, tarvik_cookie *) {
  Ear listener{"listener"}, bystander{"bystander"};
  tarvik_cookie *writer = tarvik_open_set_liberr(11, nullptr, print_diagnostic);
  tarvik_cookie *a = tarvik_open_set_liberr(12, nullptr, print_diagnostic);
  tarvik_cookie *b = tarvik_open_set_liberr(13, nullptr, print_diagnostic);
  int result = 1;
  if (writer && a && b && tarvik_create_async_context(a) == 0 &&
      tarvik_create_async_context(b) == 0 &&
      tarvik_iflm_async_register(a, &listener, heard_handler) == 0 &&
      tarvik_rtm_async_register(b, &bystander, heard_handler) == 0) {
    printf("  listener listens for logical interfaces, bystander for routes\n");
    printf("  writer changes a logical interface (one raw write, op change)\n");
    write_change(writer, 6, TLK_OP_CHANGE, 1);
    run_until_quiet(a, &listener.heard);
    run_until_quiet(b, &bystander.heard);
    printf("  listener heard %u, bystander heard %u; kernel sent %llu and %llu notifications\n",
           listener.heard, bystander.heard,
           static_cast<unsigned long long>(kernel.notifications(tarvik_getsockfd(a))),
           static_cast<unsigned long long>(kernel.notifications(tarvik_getsockfd(b))));
    result = (listener.heard == 1 && bystander.heard == 0) ? 0 : 1;
  }
  tarvik_close(b);
  tarvik_close(a);
  tarvik_close(writer);
  return result;
}

}  // namespace tlkctl
