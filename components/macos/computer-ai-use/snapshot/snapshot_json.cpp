#include "snapshot/snapshot_json.h"

#include <cmath>
#include <limits>

namespace tavlin::snapshot {

using cli::Json;

namespace {

void put(Json& object, const char* key, const std::optional<std::string>& value) {
  if (value) object[key] = *value;
}

// Reads fields of one JSON object, naming the path of anything missing or mistyped.
class Fields {
 public:
  Fields(const Json& object, std::string where) : object_(object), where_(std::move(where)) {
    if (!object_.is_object()) fail(where_, "expected an object");
  }

  [[noreturn]] static void fail(const std::string& where, const std::string& message) {
    throw DecodingError((where.empty() ? "" : where + ": ") + message);
  }

  const Json* find(const char* key) const {
    auto it = object_.find(key);
    return it == object_.end() ? nullptr : &*it;
  }
  const Json& require(const char* key) const {
    const Json* v = find(key);
    if (!v) fail(where_, std::string("missing key \"") + key + "\"");
    return *v;
  }
  std::string at(const char* key) const { return where_.empty() ? key : where_ + "." + key; }

  std::string text(const char* key) const { return textOf(require(key), at(key)); }
  std::optional<std::string> optionalText(const char* key) const {
    const Json* v = find(key);
    if (!v || v->is_null()) return std::nullopt;
    return textOf(*v, at(key));
  }
  double real(const char* key) const {
    const Json& v = require(key);
    if (!v.is_number()) fail(at(key), "expected a number");
    return v.get<double>();
  }
  int64_t integer(const char* key, int64_t min = std::numeric_limits<int64_t>::min(),
                  int64_t max = std::numeric_limits<int64_t>::max()) const {
    return integerOf(require(key), at(key), min, max);
  }
  std::optional<int64_t> optionalInteger(const char* key, int64_t min = std::numeric_limits<int64_t>::min(),
                                         int64_t max = std::numeric_limits<int64_t>::max()) const {
    const Json* v = find(key);
    if (!v || v->is_null()) return std::nullopt;
    return integerOf(*v, at(key), min, max);
  }
  bool boolean(const char* key) const {
    const Json& v = require(key);
    if (!v.is_boolean()) fail(at(key), "expected true or false");
    return v.get<bool>();
  }
  std::optional<bool> optionalBoolean(const char* key) const {
    const Json* v = find(key);
    if (!v || v->is_null()) return std::nullopt;
    if (!v->is_boolean()) fail(at(key), "expected true or false");
    return v->get<bool>();
  }

 private:
  static std::string textOf(const Json& v, const std::string& where) {
    if (!v.is_string()) fail(where, "expected a string");
    return v.get<std::string>();
  }
  static int64_t integerOf(const Json& v, const std::string& where, int64_t min, int64_t max) {
    bool integral = v.is_number_integer() ||
                    (v.is_number_float() && std::isfinite(v.get<double>()) && std::trunc(v.get<double>()) == v.get<double>());
    if (!integral) fail(where, "expected an integer");
    if (v.is_number_unsigned() && v.get<uint64_t>() > static_cast<uint64_t>(max)) fail(where, "integer out of range");
    if (v.is_number_float() && (v.get<double>() < -9.2e18 || v.get<double>() > 9.2e18)) fail(where, "integer out of range");
    int64_t n = v.get<int64_t>();
    if (n < min || n > max) fail(where, "integer out of range");
    return n;
  }

  const Json& object_;
  std::string where_;
};

RectPayload decodeRect(const Json& j, const std::string& where) {
  Fields f(j, where);
  return {f.real("x"), f.real("y"), f.real("width"), f.real("height")};
}

std::optional<RectPayload> optionalRect(const Fields& f, const char* key) {
  const Json* v = f.find(key);
  if (!v || v->is_null()) return std::nullopt;
  return decodeRect(*v, f.at(key));
}

ElementSnapshot decodeElement(const Json& j, const std::string& where) {
  Fields f(j, where);
  ElementSnapshot e;
  e.index = f.integer("index");
  e.role = f.text("role");
  e.subrole = f.optionalText("subrole");
  e.title = f.optionalText("title");
  e.desc = f.optionalText("desc");
  e.value = f.optionalText("value");
  e.identifier = f.optionalText("identifier");
  e.roleDescription = f.optionalText("roleDescription");
  e.frame = optionalRect(f, "frame");
  e.depth = f.integer("depth");
  e.path = f.text("path");
  const Json& actions = f.require("actions");
  if (!actions.is_array()) Fields::fail(f.at("actions"), "expected an array");
  for (size_t i = 0; i < actions.size(); ++i) {
    if (!actions[i].is_string()) Fields::fail(f.at("actions") + "[" + std::to_string(i) + "]", "expected a string");
    e.actions.push_back(actions[i].get<std::string>());
  }
  e.enabled = f.optionalBoolean("enabled");
  e.settable = f.boolean("settable");
  e.focused = f.boolean("focused");
  return e;
}

}  // namespace

Json encode(const RectPayload& rect) {
  return {{"x", rect.x}, {"y", rect.y}, {"width", rect.width}, {"height", rect.height}};
}

Json encode(const SizePayload& size) { return {{"width", size.width}, {"height", size.height}}; }

Json encode(const ElementSnapshot& e) {
  Json j = Json::object();
  j["index"] = e.index;
  j["role"] = e.role;
  put(j, "subrole", e.subrole);
  put(j, "title", e.title);
  put(j, "desc", e.desc);
  put(j, "value", e.value);
  put(j, "identifier", e.identifier);
  put(j, "roleDescription", e.roleDescription);
  if (e.frame) j["frame"] = encode(*e.frame);
  j["depth"] = e.depth;
  j["path"] = e.path;
  j["actions"] = e.actions;
  if (e.enabled) j["enabled"] = *e.enabled;
  j["settable"] = e.settable;
  j["focused"] = e.focused;
  return j;
}

Json encode(const WindowSnapshot& w) {
  Json j = Json::object();
  if (w.windowID) j["windowID"] = *w.windowID;
  put(j, "title", w.title);
  if (w.frame) j["frame"] = encode(*w.frame);
  return j;
}

Json encode(const AppStateSnapshot& s) {
  Json j = Json::object();
  j["app"] = s.app;
  put(j, "bundleIdentifier", s.bundleIdentifier);
  j["pid"] = s.pid;
  j["generatedAt"] = cli::iso8601(s.generatedAt);
  put(j, "screenshotPath", s.screenshotPath);
  if (s.screenshotSize) j["screenshotSize"] = encode(*s.screenshotSize);
  put(j, "annotatedScreenshotPath", s.annotatedScreenshotPath);
  if (s.screenshotMaxDimension) j["screenshotMaxDimension"] = *s.screenshotMaxDimension;
  if (s.window) j["window"] = encode(*s.window);
  if (s.focusedElementIndex) j["focusedElementIndex"] = *s.focusedElementIndex;
  Json elements = Json::array();
  for (const ElementSnapshot& e : s.elements) elements.push_back(encode(e));
  j["elements"] = std::move(elements);
  j["cachePath"] = s.cachePath;
  return j;
}

AppStateSnapshot decodeAppStateSnapshot(const Json& document) {
  Fields f(document, "");
  AppStateSnapshot s;
  s.app = f.text("app");
  s.bundleIdentifier = f.optionalText("bundleIdentifier");
  s.pid = static_cast<int32_t>(f.integer("pid", std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::max()));
  std::string generatedAt = f.text("generatedAt");
  auto date = cli::parseISO8601(generatedAt);
  if (!date) Fields::fail("generatedAt", "expected an ISO 8601 date, not \"" + generatedAt + "\"");
  s.generatedAt = *date;
  s.screenshotPath = f.optionalText("screenshotPath");
  if (const Json* size = f.find("screenshotSize"); size && !size->is_null()) {
    Fields sf(*size, "screenshotSize");
    s.screenshotSize = SizePayload{sf.integer("width"), sf.integer("height")};
  }
  s.annotatedScreenshotPath = f.optionalText("annotatedScreenshotPath");
  s.screenshotMaxDimension = f.optionalInteger("screenshotMaxDimension");
  if (const Json* window = f.find("window"); window && !window->is_null()) {
    Fields wf(*window, "window");
    WindowSnapshot w;
    if (auto id = wf.optionalInteger("windowID", 0, std::numeric_limits<uint32_t>::max())) {
      w.windowID = static_cast<uint32_t>(*id);
    }
    w.title = wf.optionalText("title");
    w.frame = optionalRect(wf, "frame");
    s.window = w;
  }
  s.focusedElementIndex = f.optionalInteger("focusedElementIndex");
  const Json& elements = f.require("elements");
  if (!elements.is_array()) Fields::fail("elements", "expected an array");
  s.elements.reserve(elements.size());
  for (size_t i = 0; i < elements.size(); ++i) {
    s.elements.push_back(decodeElement(elements[i], "elements[" + std::to_string(i) + "]"));
  }
  s.cachePath = f.text("cachePath");
  return s;
}

}  // namespace tavlin::snapshot
