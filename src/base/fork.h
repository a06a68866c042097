// Process-wide handling of fork(). A forked child has one thread, the one
// that forked; a lock that another thread held at that moment would be held
// for good in the child, and state that such a thread was changing would be
// half changed. So the forking thread takes the library's locks just
// before the fork, in the library's lock order, and lets go of them after
// it; in the child, which cannot unlock what the parent's threads held, the
// locks are made anew instead.
//
// The library registers its hooks once; the base keeps its own state (the
// per-thread records, the random generator) around them: taken after the
// hooks' prepare, given back before their parent hook, renewed before
// their child hook. The random generator is stirred again in the child,
// so that a parent and its children never make the same temporary name.
#ifndef ZYR_BASE_FORK_H
#define ZYR_BASE_FORK_H

#include "zyrlog/result.h"

struct ZyrBasForkHooks {
  void (*prepare)();  // the forking thread, before the fork: take the locks
  void (*parent)();   // the parent, after the fork: give them back
  void (*child)();    // the child: make them anew, drop what the parent owns
};

// Installs `hooks` (static storage) for every later fork of the process;
// the first call also registers the handlers with the system. A later call
// replaces the hooks.
ZyrResult ZyrBasSetForkHooks(const ZyrBasForkHooks* hooks);

#endif
