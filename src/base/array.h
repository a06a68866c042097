// Growable arrays and name-keyed maps of the library. No exceptions: growth
// answers ZYR_E_OUT_OF_MEMORY and leaves the container as it was.
#ifndef ZYR_BASE_ARRAY_H
#define ZYR_BASE_ARRAY_H

#include <cstddef>
#include <cstring>
#include <new>
#include <type_traits>
#include <utility>

#include "base/memory.h"
#include "base/string.h"
#include "zyrlog/result.h"

enum class ZyrBasGrowth {
  Standard,  // the shared rule of ZyrBasGrowCount
  Exact,     // exactly what is asked
  HalfAgain  // needed count plus half of it, always (the dispatcher's queue)
};

// (begin, end, capacity end) with the shared growth rule. Elements are
// moved, never copied, when the storage changes; the element type's move
// constructor must not fail.
template <class T>
class ZyrBasArray {
 public:
  ZyrBasArray() noexcept = default;
  ~ZyrBasArray() { Free(); }
  ZyrBasArray(const ZyrBasArray&) = delete;
  ZyrBasArray& operator=(const ZyrBasArray&) = delete;
  ZyrBasArray(ZyrBasArray&& other) noexcept { Swap(other); }
  ZyrBasArray& operator=(ZyrBasArray&& other) noexcept {
    if (this != &other) {
      Free();
      Swap(other);
    }
    return *this;
  }

  std::size_t Count() const noexcept { return static_cast<std::size_t>(end_ - begin_); }
  std::size_t Capacity() const noexcept { return static_cast<std::size_t>(cap_ - begin_); }
  bool Empty() const noexcept { return end_ == begin_; }
  T& operator[](std::size_t i) noexcept { return begin_[i]; }
  const T& operator[](std::size_t i) const noexcept { return begin_[i]; }
  T* begin() noexcept { return begin_; }
  T* end() noexcept { return end_; }
  const T* begin() const noexcept { return begin_; }
  const T* end() const noexcept { return end_; }
  T& Last() noexcept { return end_[-1]; }

  // Makes room for `needed` elements in all.
  ZyrResult Reserve(std::size_t needed, ZyrBasGrowth growth = ZyrBasGrowth::Standard) noexcept {
    if (Capacity() >= needed) return ZYR_OK;
    std::size_t count;
    switch (growth) {
      case ZyrBasGrowth::Exact: count = needed; break;
      case ZyrBasGrowth::HalfAgain: count = needed + needed / 2; break;
      default: count = ZyrBasGrowCount(needed, sizeof(T), false); break;
    }
    return Reallocate(count);
  }

  ZyrResult Append(T&& value, ZyrBasGrowth growth = ZyrBasGrowth::Standard) noexcept {
    ZyrResult r = Reserve(Count() + 1, growth);
    if (ZyrFailed(r)) return r;
    new (end_) T(static_cast<T&&>(value));
    ++end_;
    return ZYR_OK;
  }

  // Builds the new last element in place from `args`: no temporary to
  // move from.
  template <class... Args>
  ZyrResult Emplace(ZyrBasGrowth growth, Args&&... args) noexcept {
    ZyrResult r = Reserve(Count() + 1, growth);
    if (ZyrFailed(r)) return r;
    new (end_) T(static_cast<Args&&>(args)...);
    ++end_;
    return ZYR_OK;
  }

  ZyrResult Append(const T& value, ZyrBasGrowth growth = ZyrBasGrowth::Standard) noexcept {
    static_assert(std::is_trivially_copyable_v<T>, "copy only plain values; move the others");
    ZyrResult r = Reserve(Count() + 1, growth);
    if (ZyrFailed(r)) return r;
    new (end_) T(value);
    ++end_;
    return ZYR_OK;
  }

  // Inserts at index, keeping the order of the others.
  ZyrResult InsertAt(std::size_t index, T&& value) noexcept {
    ZyrResult r = Reserve(Count() + 1);
    if (ZyrFailed(r)) return r;
    std::size_t n = Count();
    if (index > n) index = n;
    if (index == n) {
      new (end_) T(static_cast<T&&>(value));
    } else {
      new (end_) T(static_cast<T&&>(end_[-1]));
      for (std::size_t i = n - 1; i > index; --i) begin_[i] = static_cast<T&&>(begin_[i - 1]);
      begin_[index] = static_cast<T&&>(value);
    }
    ++end_;
    return ZYR_OK;
  }

  // Removes one element and closes the gap; storage stays.
  void RemoveAt(std::size_t index) noexcept {
    std::size_t n = Count();
    for (std::size_t i = index; i + 1 < n; ++i) begin_[i] = static_cast<T&&>(begin_[i + 1]);
    --end_;
    end_->~T();
  }

  // Destroys elements from the end down to `count`.
  void Truncate(std::size_t count) noexcept {
    if constexpr (std::is_trivially_destructible_v<T>) {
      if (Count() > count) end_ = begin_ + count;
    } else {
      while (Count() > count) {
        --end_;
        end_->~T();
      }
    }
  }

  void Clear() noexcept { Truncate(0); }

  // Plain values only: sets the count within the reserved storage, for a
  // caller that wrote the elements through begin() after Reserve.
  void SetCount(std::size_t count) noexcept {
    static_assert(std::is_trivially_copyable_v<T>, "only plain values may be written in place");
    end_ = begin_ + count;
  }

  void Free() noexcept {
    Clear();
    ZyrBasFree(begin_);
    begin_ = end_ = cap_ = nullptr;
  }

  // Replaces the storage by one of exactly the element count.
  ZyrResult Trim() noexcept {
    if (Capacity() == Count()) return ZYR_OK;
    if (Count() == 0) {
      Free();
      return ZYR_OK;
    }
    return Reallocate(Count());
  }

  void Swap(ZyrBasArray& other) noexcept {
    std::swap(begin_, other.begin_);
    std::swap(end_, other.end_);
    std::swap(cap_, other.cap_);
  }

 private:
  ZyrResult Reallocate(std::size_t count) noexcept {
    if (count > static_cast<std::size_t>(-1) / sizeof(T)) return ZYR_E_OUT_OF_MEMORY;
    T* block = static_cast<T*>(ZyrBasAlloc(count * sizeof(T)));
    if (!block) return ZYR_E_OUT_OF_MEMORY;
    std::size_t n = Count();
    for (std::size_t i = 0; i < n; ++i) {
      new (block + i) T(static_cast<T&&>(begin_[i]));
      begin_[i].~T();
    }
    ZyrBasFree(begin_);
    begin_ = block;
    end_ = block + n;
    cap_ = block + count;
    return ZYR_OK;
  }

  T* begin_ = nullptr;
  T* end_ = nullptr;
  T* cap_ = nullptr;
};

// A map from wide name to value, ordered by the ordinal (byte) comparison of
// the names, with a shorter name before a longer one of the same beginning.
// Held as a sorted array: the maps of this library are small (sections,
// children of a logger, appenders), and a sorted array iterates in order
// with no per-node allocation.
template <class V>
class ZyrBasNameMap {
 public:
  struct Entry {
    ZyrBasString name;
    V value;
  };

  std::size_t Count() const noexcept { return entries_.Count(); }
  bool Empty() const noexcept { return entries_.Empty(); }
  Entry& At(std::size_t i) noexcept { return entries_[i]; }
  const Entry& At(std::size_t i) const noexcept { return entries_[i]; }
  Entry* begin() noexcept { return entries_.begin(); }
  Entry* end() noexcept { return entries_.end(); }

  // Index of the name, or of the place where it would go, with `found`.
  std::size_t Locate(const char16_t* name, std::size_t length, bool* found) const noexcept {
    std::size_t lo = 0, hi = entries_.Count();
    while (lo < hi) {
      std::size_t mid = (lo + hi) / 2;
      int c = ZyrBasCompareOrdinal(entries_[mid].name.Text(), entries_[mid].name.Length(), name, length);
      if (c == 0) {
        *found = true;
        return mid;
      }
      if (c < 0) lo = mid + 1;
      else hi = mid;
    }
    *found = false;
    return lo;
  }

  V* Find(const char16_t* name, std::size_t length = ZYR_TERMINATED) noexcept {
    bool found;
    std::size_t i = Locate(name, length == ZYR_TERMINATED ? ZyrBasStrLen(name) : length, &found);
    return found ? &entries_[i].value : nullptr;
  }
  V* Find(const ZyrBasString& name) noexcept { return Find(name.Text(), name.Length()); }

  // Inserts a new entry; ZYR_E_ALREADY_EXISTS leaves the present one.
  ZyrResult Insert(const char16_t* name, std::size_t length, V&& value) noexcept {
    if (length == ZYR_TERMINATED) length = ZyrBasStrLen(name);
    bool found = false;
    // Names that come in order (a map filled from a sorted list) go to the
    // end without a search.
    std::size_t i = entries_.Count();
    if (i == 0 || ZyrBasCompareOrdinal(entries_[i - 1].name.Text(), entries_[i - 1].name.Length(), name, length) >= 0)
      i = Locate(name, length, &found);
    if (found) return ZYR_E_ALREADY_EXISTS;
    Entry e{ZyrBasString(), static_cast<V&&>(value)};
    ZyrResult r = e.name.Assign(name, length);
    if (ZyrSucceeded(r)) r = entries_.InsertAt(i, static_cast<Entry&&>(e));
    if (ZyrFailed(r)) value = static_cast<V&&>(e.value);  // hand the value back to the caller
    return r;
  }
  ZyrResult Insert(const ZyrBasString& name, V&& value) noexcept {
    return Insert(name.Text(), name.Length(), static_cast<V&&>(value));
  }

  // ZYR_I_NOT_FOUND when absent.
  ZyrResult Remove(const char16_t* name, std::size_t length = ZYR_TERMINATED) noexcept {
    if (length == ZYR_TERMINATED) length = ZyrBasStrLen(name);
    bool found;
    std::size_t i = Locate(name, length, &found);
    if (!found) return ZYR_I_NOT_FOUND;
    entries_.RemoveAt(i);
    return ZYR_OK;
  }

  void RemoveAt(std::size_t i) noexcept { entries_.RemoveAt(i); }
  void Clear() noexcept { entries_.Clear(); }
  void Free() noexcept { entries_.Free(); }
  void Swap(ZyrBasNameMap& other) noexcept { entries_.Swap(other.entries_); }

 private:
  ZyrBasArray<Entry> entries_;
};

#endif
