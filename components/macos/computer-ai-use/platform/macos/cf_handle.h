#pragma once
// The one owner of CoreFoundation references in the adapter. Two named ways in:
// `adopt` takes a +1 result of a Create/Copy call, `retain` keeps a borrowed one.
#include <CoreFoundation/CoreFoundation.h>

#include <utility>

namespace tavlin::macos {

template <typename Ref>
class CFHandle {
 public:
  CFHandle() = default;
  static CFHandle adopt(Ref ref) { return CFHandle(ref); }
  static CFHandle retain(Ref ref) {
    if (ref) CFRetain(ref);
    return CFHandle(ref);
  }
  CFHandle(const CFHandle& other) : ref_(other.ref_) {
    if (ref_) CFRetain(ref_);
  }
  CFHandle(CFHandle&& other) noexcept : ref_(std::exchange(other.ref_, nullptr)) {}
  CFHandle& operator=(CFHandle other) noexcept {
    std::swap(ref_, other.ref_);
    return *this;
  }
  ~CFHandle() {
    if (ref_) CFRelease(ref_);
  }

  Ref get() const { return ref_; }
  explicit operator bool() const { return ref_ != nullptr; }
  // True when the value is of the CF type whose type ID is given.
  bool hasType(CFTypeID type) const { return ref_ && CFGetTypeID(ref_) == type; }

 private:
  explicit CFHandle(Ref ref) : ref_(ref) {}
  Ref ref_ = nullptr;
};

}  // namespace tavlin::macos
