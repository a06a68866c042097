#include "base/os/fork_os.h"

#include <pthread.h>

#include "base/result.h"

namespace {
pthread_once_t g_once = PTHREAD_ONCE_INIT;
void (*g_prepare)();
void (*g_parent)();
void (*g_child)();
int g_error;
void Register() { g_error = pthread_atfork(g_prepare, g_parent, g_child); }
}  // namespace

ZyrResult ZyrBasOsAtFork(void (*prepare)(), void (*parent)(), void (*child)()) {
  // The first caller's handlers are the ones registered: the base passes
  // the same three every time.
  if (!g_prepare) {
    g_prepare = prepare;
    g_parent = parent;
    g_child = child;
  }
  pthread_once(&g_once, &Register);
  return g_error ? ZyrResultFromErrno(g_error) : ZYR_OK;
}
