#include "base/fork.h"

#include <atomic>

#include "base/os/fork_os.h"
#include "base/random.h"
#include "base/sync.h"

namespace {

std::atomic<const ZyrBasForkHooks*> g_hooks{nullptr};
// The hooks of the fork in progress: the three handlers see the same ones,
// whatever a thread installs meanwhile.
const ZyrBasForkHooks* g_current;

void Prepare() {
  g_current = g_hooks.load(std::memory_order_acquire);
  if (g_current) g_current->prepare();
  ZyrBasThreadRecordsForkPrepare();
  ZyrBasRandomForkPrepare();
}

void Parent() {
  ZyrBasRandomForkParent();
  ZyrBasThreadRecordsForkParent();
  if (g_current) g_current->parent();
}

void Child() {
  ZyrBasRandomForkChild();
  ZyrBasThreadRecordsForkChild();
  if (g_current) g_current->child();
}

}  // namespace

ZyrResult ZyrBasSetForkHooks(const ZyrBasForkHooks* hooks) {
  g_hooks.store(hooks, std::memory_order_release);
  return ZyrBasOsAtFork(&Prepare, &Parent, &Child);
}
