#include "platform/macos/mac_accessibility.h"

#include <ApplicationServices/ApplicationServices.h>

#include "platform/macos/cf_handle.h"
#include "platform/macos/cf_strings.h"

namespace tavlin::macos {

using platform::AXAttributeValue;
using platform::AXCopyResult;
using platform::Element;

namespace {

// An element handle owns its AXUIElementRef; its CFHash is taken once.
struct MacElement final : platform::ElementImpl {
  explicit MacElement(CFHandle<AXUIElementRef> ref) : ref(std::move(ref)), hash(CFHash(this->ref.get())) {}
  CFHandle<AXUIElementRef> ref;
  uint64_t hash;
};

Element wrap(CFHandle<AXUIElementRef> ref) {
  if (!ref) return Element();
  return Element(std::make_shared<MacElement>(std::move(ref)));
}

AXUIElementRef axRef(const Element& element) {
  const auto* e = dynamic_cast<const MacElement*>(element.impl());
  return e ? e->ref.get() : nullptr;
}

platform::AXError neutral(AXError error) { return static_cast<platform::AXError>(static_cast<int32_t>(error)); }

// Converts any CF value the accessibility API hands out; borrowed, not consumed.
AXAttributeValue convert(CFTypeRef value) {
  CFTypeID type = CFGetTypeID(value);
  if (type == CFStringGetTypeID()) return {toUTF8(static_cast<CFStringRef>(value))};
  if (type == CFBooleanGetTypeID()) {
    return {platform::AXNumber::ofBoolean(CFBooleanGetValue(static_cast<CFBooleanRef>(value)) != 0)};
  }
  if (type == CFNumberGetTypeID()) {
    auto number = static_cast<CFNumberRef>(value);
    CFNumberType kind = CFNumberGetType(number);
    if (kind == kCFNumberFloat32Type || kind == kCFNumberFloatType) {
      // Kept 32-bit, so that it prints as the platform prints it ("0.7", not the
      // widened "0.699999988079071").
      float single = 0;
      CFNumberGetValue(number, kCFNumberFloat32Type, &single);
      return {platform::AXNumber::ofReal32(single)};
    }
    if (CFNumberIsFloatType(number)) {
      double real = 0;
      CFNumberGetValue(number, kCFNumberDoubleType, &real);
      return {platform::AXNumber::ofReal(real)};
    }
    int64_t integer = 0;
    CFNumberGetValue(number, kCFNumberSInt64Type, &integer);
    return {platform::AXNumber::ofInteger(integer)};
  }
  if (type == AXValueGetTypeID()) {
    auto axValue = static_cast<AXValueRef>(value);
    switch (AXValueGetType(axValue)) {
      case kAXValueTypeCGPoint: {
        CGPoint p{};
        if (AXValueGetValue(axValue, kAXValueTypeCGPoint, &p)) return {platform::Point{p.x, p.y}};
        break;
      }
      case kAXValueTypeCGSize: {
        CGSize s{};
        if (AXValueGetValue(axValue, kAXValueTypeCGSize, &s)) return {platform::Size{s.width, s.height}};
        break;
      }
      case kAXValueTypeCGRect: {
        CGRect r{};
        if (AXValueGetValue(axValue, kAXValueTypeCGRect, &r)) {
          return {platform::Rect{{r.origin.x, r.origin.y}, {r.size.width, r.size.height}}};
        }
        break;
      }
      default:
        break;
    }
    return {platform::AXOther{"AXValue"}};
  }
  if (type == AXUIElementGetTypeID()) {
    return {wrap(CFHandle<AXUIElementRef>::retain(static_cast<AXUIElementRef>(value)))};
  }
  if (type == CFURLGetTypeID()) {
    // The Open panel's entries carry file-reference URLs (file:///.file/id=...), which
    // name a file by its id: turned into a path URL here, as the platform's URL
    // bridging does, so the core reads a path.
    // CFURLGetString alone is only the part relative to a base, so the absolute URL is
    // read; and a file URL's path is the platform's own decoding of it.
    auto url = static_cast<CFURLRef>(value);
    auto path = CFHandle<CFURLRef>::adopt(CFURLCreateFilePathURL(kCFAllocatorDefault, url, nullptr));
    CFURLRef chosen = path ? path.get() : url;
    auto absolute = CFHandle<CFURLRef>::adopt(CFURLCopyAbsoluteURL(chosen));
    platform::AXURL out{toUTF8(CFURLGetString(absolute ? absolute.get() : chosen)), std::nullopt};
    if (path) {
      auto fileSystemPath = CFHandle<CFStringRef>::adopt(CFURLCopyFileSystemPath(path.get(), kCFURLPOSIXPathStyle));
      if (fileSystemPath) out.fileSystemPath = toUTF8(fileSystemPath.get());
    }
    return {std::move(out)};
  }
  if (type == CFArrayGetTypeID()) {
    auto array = static_cast<CFArrayRef>(value);
    platform::AXArray items;
    CFIndex count = CFArrayGetCount(array);
    items.reserve(static_cast<size_t>(count));
    for (CFIndex i = 0; i < count; ++i) items.push_back(convert(CFArrayGetValueAtIndex(array, i)));
    return {std::move(items)};
  }
  auto description = CFHandle<CFStringRef>::adopt(CFCopyTypeIDDescription(type));
  return {platform::AXOther{description ? toUTF8(description.get()) : "unknown"}};
}

// One slot of a CopyMultiple result: kCFNull, or an AXValue carrying the slot's
// AXError, stands for a failed read.
AXCopyResult slot(CFTypeRef value) {
  if (!value || CFGetTypeID(value) == CFNullGetTypeID()) return {platform::AXError::noValue, std::nullopt};
  if (CFGetTypeID(value) == AXValueGetTypeID() && AXValueGetType(static_cast<AXValueRef>(value)) == kAXValueTypeAXError) {
    AXError error = kAXErrorFailure;
    AXValueGetValue(static_cast<AXValueRef>(value), kAXValueTypeAXError, &error);
    return {neutral(error), std::nullopt};
  }
  return {platform::AXError::success, convert(value)};
}

}  // namespace

bool MacAccessibility::isProcessTrusted(bool prompt) {
  if (!prompt) return AXIsProcessTrusted();
  const void* keys[] = {kAXTrustedCheckOptionPrompt};
  const void* values[] = {kCFBooleanTrue};
  auto options = CFHandle<CFDictionaryRef>::adopt(CFDictionaryCreate(
      kCFAllocatorDefault, keys, values, 1, &kCFTypeDictionaryKeyCallBacks, &kCFTypeDictionaryValueCallBacks));
  return AXIsProcessTrustedWithOptions(options.get());
}

Element MacAccessibility::applicationElement(int32_t pid) {
  return wrap(CFHandle<AXUIElementRef>::adopt(AXUIElementCreateApplication(pid)));
}

Element MacAccessibility::systemWideElement() {
  return wrap(CFHandle<AXUIElementRef>::adopt(AXUIElementCreateSystemWide()));
}

AXCopyResult MacAccessibility::copyAttributeValue(const Element& element, const std::string& attribute) {
  AXUIElementRef ref = axRef(element);
  if (!ref) return {platform::AXError::invalidUIElement, std::nullopt};
  CFTypeRef raw = nullptr;
  AXError error = AXUIElementCopyAttributeValue(ref, cfString(attribute).get(), &raw);
  auto value = CFHandle<CFTypeRef>::adopt(raw);
  if (error != kAXErrorSuccess) return {neutral(error), std::nullopt};
  if (!value) return {platform::AXError::noValue, std::nullopt};
  return {platform::AXError::success, convert(value.get())};
}

platform::AXError MacAccessibility::copyMultipleAttributeValues(const Element& element,
                                                                const std::vector<std::string>& attributes,
                                                                std::vector<AXCopyResult>& results) {
  results.clear();
  AXUIElementRef ref = axRef(element);
  if (!ref) return platform::AXError::invalidUIElement;
  auto names = cfStringArray(attributes);
  CFArrayRef raw = nullptr;
  // Options 0: keep going past failed attributes, so one call serves the whole batch.
  AXError error = AXUIElementCopyMultipleAttributeValues(ref, names.get(), 0, &raw);
  auto values = CFHandle<CFArrayRef>::adopt(raw);
  if (error != kAXErrorSuccess) return neutral(error);
  if (!values.hasType(CFArrayGetTypeID())) return platform::AXError::failure;
  CFIndex count = CFArrayGetCount(values.get());
  for (size_t i = 0; i < attributes.size(); ++i) {
    CFIndex at = static_cast<CFIndex>(i);
    results.push_back(at < count ? slot(CFArrayGetValueAtIndex(values.get(), at))
                                 : AXCopyResult{platform::AXError::noValue, std::nullopt});
  }
  return platform::AXError::success;
}

AXCopyResult MacAccessibility::copyActionNames(const Element& element) {
  AXUIElementRef ref = axRef(element);
  if (!ref) return {platform::AXError::invalidUIElement, std::nullopt};
  CFArrayRef raw = nullptr;
  AXError error = AXUIElementCopyActionNames(ref, &raw);
  auto names = CFHandle<CFArrayRef>::adopt(raw);
  if (error != kAXErrorSuccess) return {neutral(error), std::nullopt};
  if (!names) return {platform::AXError::noValue, std::nullopt};
  return {platform::AXError::success, convert(names.get())};
}

platform::AXError MacAccessibility::isAttributeSettable(const Element& element, const std::string& attribute,
                                                        bool& settable) {
  settable = false;
  AXUIElementRef ref = axRef(element);
  if (!ref) return platform::AXError::invalidUIElement;
  Boolean result = false;
  AXError error = AXUIElementIsAttributeSettable(ref, cfString(attribute).get(), &result);
  settable = error == kAXErrorSuccess && result;
  return neutral(error);
}

platform::AXError MacAccessibility::performAction(const Element& element, const std::string& action) {
  AXUIElementRef ref = axRef(element);
  if (!ref) return platform::AXError::invalidUIElement;
  return neutral(AXUIElementPerformAction(ref, cfString(action).get()));
}

platform::AXError MacAccessibility::setAttributeValue(const Element& element, const std::string& attribute,
                                                      const std::string& text) {
  AXUIElementRef ref = axRef(element);
  if (!ref) return platform::AXError::invalidUIElement;
  return neutral(AXUIElementSetAttributeValue(ref, cfString(attribute).get(), cfString(text).get()));
}

platform::AXError MacAccessibility::setAttributeElements(const Element& element, const std::string& attribute,
                                                         const std::vector<Element>& elements) {
  AXUIElementRef ref = axRef(element);
  if (!ref) return platform::AXError::invalidUIElement;
  std::vector<const void*> values;
  for (const Element& e : elements) {
    if (AXUIElementRef item = axRef(e)) values.push_back(item);
  }
  CFHandle<CFArrayRef> array = CFHandle<CFArrayRef>::adopt(
      CFArrayCreate(kCFAllocatorDefault, values.data(), static_cast<CFIndex>(values.size()), &kCFTypeArrayCallBacks));
  if (!array) return platform::AXError::failure;
  return neutral(AXUIElementSetAttributeValue(ref, cfString(attribute).get(), array.get()));
}

uint64_t MacAccessibility::hash(const Element& element) {
  const auto* e = dynamic_cast<const MacElement*>(element.impl());
  return e ? e->hash : 0;
}

bool MacAccessibility::sameElement(const Element& a, const Element& b) {
  AXUIElementRef left = axRef(a);
  AXUIElementRef right = axRef(b);
  if (!left || !right) return left == right;
  return CFEqual(left, right);
}

platform::AXError MacAccessibility::setMessagingTimeout(const Element& element, float seconds) {
  AXUIElementRef ref = axRef(element);
  if (!ref) return platform::AXError::invalidUIElement;
  return neutral(AXUIElementSetMessagingTimeout(ref, seconds));
}

}  // namespace tavlin::macos
