// Folder change notification: the folder opened for listing, and a request
// for its changes that stays pending until one comes and then sets an
// event. The event is the waitable; the open folder, the buffer and the
// request's status live in a record that closing the event ends.
#include "base/lock.h"
#include "base/memory.h"
#include "base/nt/nt_support.h"
#include "base/os/folder_watch_os.h"
#include "base/os/sync_os.h"

namespace {

constexpr ULONG kChanges = FILE_NOTIFY_CHANGE_FILE_NAME | FILE_NOTIFY_CHANGE_DIR_NAME | FILE_NOTIFY_CHANGE_SIZE |
                           FILE_NOTIFY_CHANGE_LAST_WRITE | FILE_NOTIFY_CHANGE_CREATION;
constexpr ULONG kBufferSize = 16384;
constexpr NTSTATUS kDeletePending = static_cast<NTSTATUS>(0xC0000056u);

struct Watch {
  HANDLE event = nullptr;
  HANDLE folder = nullptr;
  IO_STATUS_BLOCK io{};
  bool pending = false;
  Watch* next = nullptr;
  alignas(8) unsigned char buffer[kBufferSize];
};

ZyrBasSpinLock g_lock;
Watch* g_watches = nullptr;

Watch* Find(HANDLE event) {
  for (Watch* w = g_watches; w; w = w->next)
    if (w->event == event) return w;
  return nullptr;
}

NTSTATUS Arm(Watch* w) {
  NTSTATUS s = NtNotifyChangeDirectoryFile(w->folder, w->event, nullptr, nullptr, &w->io, w->buffer, kBufferSize,
                                           kChanges, 0);
  w->pending = s == STATUS_PENDING;
  return s;
}

void End(Watch* w) {
  if (w->pending) {
    IO_STATUS_BLOCK io{};
    NtCancelIoFile(w->folder, &io);
    NtWaitForSingleObject(w->event, 0, nullptr);
  }
  NtClose(w->folder);
  NtClose(w->event);
  ZyrDelete(w);
}

}  // namespace

ZyrResult ZyrBasOsFolderWatchOpen(const char* path, ZyrBasHandle* out) {
  ZyrNtName name(path);
  if (!name.Ok()) return name.Result();
  Watch* w = ZyrNew<Watch>();
  if (!w) return ZYR_E_OUT_OF_MEMORY;
  OBJECT_ATTRIBUTES oa = NtObjectAttributes(name.Counted());
  IO_STATUS_BLOCK io{};
  NTSTATUS s = NtCreateFile(&w->folder, FILE_LIST_DIRECTORY, &oa, &io, nullptr, FILE_ATTRIBUTE_NORMAL,
                            FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE, FILE_OPEN, FILE_DIRECTORY_FILE,
                            nullptr, 0);
  if (!NtSucceeded(s)) {
    ZyrDelete(w);
    return s == STATUS_OBJECT_NAME_NOT_FOUND ? ZYR_E_PATH_NOT_FOUND : NtResult(s);
  }
  s = NtCreateEvent(&w->event, EVENT_ALL_ACCESS, nullptr, 0, 0);
  if (NtSucceeded(s)) {
    s = Arm(w);
    if (s != STATUS_PENDING && NtSucceeded(s)) s = STATUS_INVALID_DEVICE_REQUEST;  // must wait for changes
  }
  if (!w->pending) {
    if (w->event) NtClose(w->event);
    NtClose(w->folder);
    ZyrDelete(w);
    return NtResult(s);
  }
  {
    ZyrBasSpinGuard guard(g_lock);
    w->next = g_watches;
    g_watches = w;
  }
  *out = NtHandleValue(w->event);
  return ZYR_OK;
}

ZyrResult ZyrBasOsFolderWatchRead(ZyrBasHandle handle, bool* ended) {
  *ended = false;
  Watch* w;
  {
    ZyrBasSpinGuard guard(g_lock);
    w = Find(NtHandle(handle));
  }
  if (!w) return ZYR_E_INVALID_HANDLE;
  if (w->pending) {
    std::int64_t none = 0;
    if (NtWaitForSingleObject(w->event, 0, &none) == STATUS_TIMEOUT) return ZYR_OK;  // nothing came yet
    w->pending = false;
  }
  if (w->io.Status == kDeletePending || w->io.Status == STATUS_ACCESS_DENIED) {
    *ended = true;
    return ZYR_OK;
  }
  NtResetEvent(w->event, nullptr);
  NTSTATUS s = Arm(w);
  if (s == kDeletePending || s == STATUS_ACCESS_DENIED) {
    *ended = true;
    return ZYR_OK;
  }
  // Changes that came meanwhile answer at once and leave the event set.
  return NtSucceeded(s) ? ZYR_OK : NtResult(s);
}

// Closing the event of a watch ends the watch; any other handle is closed.
ZyrResult ZyrBasOsClose(ZyrBasHandle handle) {
  Watch* w = nullptr;
  {
    ZyrBasSpinGuard guard(g_lock);
    for (Watch** link = &g_watches; *link; link = &(*link)->next) {
      if ((*link)->event == NtHandle(handle)) {
        w = *link;
        *link = w->next;
        break;
      }
    }
  }
  if (w) {
    End(w);
    return ZYR_OK;
  }
  return NtResult(NtClose(NtHandle(handle)));
}
