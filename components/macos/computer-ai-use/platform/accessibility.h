#pragma once
// The accessibility port: AXUIElement in neutral values. Every call that crosses
// to another process is one "round trip"; the core is written to keep them few.
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "platform/geometry.h"

namespace tavlin::platform {

// AXError codes, with Apple's values.
enum class AXError : int32_t {
  success = 0,
  failure = -25200,
  illegalArgument = -25201,
  invalidUIElement = -25202,
  invalidUIElementObserver = -25203,
  cannotComplete = -25204,
  attributeUnsupported = -25205,
  actionUnsupported = -25206,
  notificationUnsupported = -25207,
  notImplemented = -25208,
  notificationAlreadyRegistered = -25209,
  notificationNotRegistered = -25210,
  apiDisabled = -25211,
  noValue = -25212,
  parameterizedAttributeUnsupported = -25213,
  notEnoughPrecision = -25214,
};

// Adapter-owned state behind an element handle.
class ElementImpl {
 public:
  virtual ~ElementImpl() = default;
};

// A cheap, copyable, reference-counted element handle (AXUIElementRef). Identity is
// the hash the accessibility port reports, never the handle itself.
class Element {
 public:
  Element() = default;
  explicit Element(std::shared_ptr<const ElementImpl> impl) : impl_(std::move(impl)) {}
  const ElementImpl* impl() const { return impl_.get(); }
  explicit operator bool() const { return impl_ != nullptr; }

 private:
  std::shared_ptr<const ElementImpl> impl_;
};

// A CFNumber or CFBoolean. `stringValue` is NSNumber's: integers in decimal, reals
// with %0.16g, 32-bit reals (kCFNumberFloat32Type) with %0.7g, booleans "1"/"0".
struct AXNumber {
  enum class Kind { integer, real, boolean, real32 };
  Kind kind = Kind::integer;
  int64_t integer = 0;
  double real = 0;
  bool boolean = false;

  static AXNumber ofInteger(int64_t v) { return {Kind::integer, v, 0, false}; }
  static AXNumber ofReal(double v) { return {Kind::real, 0, v, false}; }
  static AXNumber ofBoolean(bool v) { return {Kind::boolean, 0, 0, v}; }
  static AXNumber ofReal32(float v) { return {Kind::real32, 0, v, false}; }

  std::string stringValue() const;
  bool truthValue() const;
  double doubleValue() const;
};

// A CFURL: its absolute text (a relative URL resolved against its base) and, for a
// file URL, the file-system path the platform reads from it (percent-decoded, no
// trailing "/").
struct AXURL {
  std::string absoluteString;
  std::optional<std::string> fileSystemPath;
};

// Any CF type the core has no reading for; kept only so it reads as "wrong kind".
struct AXOther {
  std::string typeName;
};

struct AXAttributeValue;
using AXArray = std::vector<AXAttributeValue>;

// One attribute value as it crosses the seam.
struct AXAttributeValue {
  std::variant<AXOther, std::string, AXNumber, Point, Size, Rect, AXURL, Element, AXArray> storage;

  const std::string* text() const { return std::get_if<std::string>(&storage); }
  const AXNumber* number() const { return std::get_if<AXNumber>(&storage); }
  const Point* point() const { return std::get_if<Point>(&storage); }
  const Size* size() const { return std::get_if<Size>(&storage); }
  const Rect* rect() const { return std::get_if<Rect>(&storage); }
  const AXURL* url() const { return std::get_if<AXURL>(&storage); }
  const Element* element() const { return std::get_if<Element>(&storage); }
  const AXArray* array() const { return std::get_if<AXArray>(&storage); }
};

// The outcome of one attribute read: an error, or success with a value.
struct AXCopyResult {
  AXError error = AXError::noValue;
  std::optional<AXAttributeValue> value;
};

class Accessibility {
 public:
  virtual ~Accessibility() = default;

  // AXIsProcessTrusted / AXIsProcessTrustedWithOptions(prompt: true).
  virtual bool isProcessTrusted(bool prompt) = 0;
  virtual Element applicationElement(int32_t pid) = 0;
  virtual Element systemWideElement() = 0;
  virtual AXCopyResult copyAttributeValue(const Element& element, const std::string& attribute) = 0;
  // One round trip for many attributes: one result per name, in order. A slot that
  // failed carries its own error; the returned error is the call's as a whole.
  virtual AXError copyMultipleAttributeValues(const Element& element, const std::vector<std::string>& attributes,
                                              std::vector<AXCopyResult>& results) = 0;
  // Success with an array of text values, or an error.
  virtual AXCopyResult copyActionNames(const Element& element) = 0;
  virtual AXError isAttributeSettable(const Element& element, const std::string& attribute, bool& settable) = 0;
  virtual AXError performAction(const Element& element, const std::string& action) = 0;
  virtual AXError setAttributeValue(const Element& element, const std::string& attribute,
                                    const std::string& text) = 0;
  // The same with an array of elements (a list's "AXSelectedRows").
  virtual AXError setAttributeElements(const Element& element, const std::string& attribute,
                                       const std::vector<Element>& elements) = 0;
  // CFHash: the element's identity for de-duplication and focus.
  virtual uint64_t hash(const Element& element) = 0;
  // CFEqual: whether two handles stand for the same element, which two elements whose
  // hashes collide do not. Answered locally, without a round trip.
  virtual bool sameElement(const Element& a, const Element& b) = 0;
  // How long one call may wait for an application that does not answer.
  virtual AXError setMessagingTimeout(const Element& element, float seconds) = 0;
};

}  // namespace tavlin::platform
