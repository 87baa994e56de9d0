#include "snapshot/element_changes.h"

#include <algorithm>
#include <deque>
#include <limits>
#include <map>
#include <string_view>
#include <unordered_map>

#include "apps/app_targeting.h"
#include "cli/tool_error.h"
#include "snapshot/ax_access.h"
#include "snapshot/get_app_state.h"
#include "snapshot/snapshot_json.h"
#include "snapshot/state_cache.h"

namespace tavlin::snapshot {

namespace {

constexpr size_t none = static_cast<size_t>(-1);

// Children by position, rebuilt from the pre-order list and its depths, and each
// element's own path label.
struct Tree {
  std::vector<size_t> roots;
  std::vector<std::vector<size_t>> children;
  std::vector<std::string> labels;
};

Tree treeOf(const std::vector<ElementSnapshot>& elements) {
  Tree tree;
  tree.children.resize(elements.size());
  tree.labels.resize(elements.size());
  std::vector<size_t> open;  // the chain of ancestors of the next element
  for (size_t i = 0; i < elements.size(); ++i) {
    const ElementSnapshot& e = elements[i];
    while (!open.empty() && elements[open.back()].depth >= e.depth) open.pop_back();
    // A path is its parent's, " > " and the label: the label is read off it rather than
    // made again, which would cut values into characters once more for every element.
    std::string prefix = open.empty() ? "" : elements[open.back()].path + " > ";
    if (e.path.size() > prefix.size() && e.path.starts_with(prefix)) {
      tree.labels[i] = e.path.substr(prefix.size());
    } else {
      tree.labels[i] = snapshotPathLabel(e.role, e.title, e.desc, e.value);
    }
    (open.empty() ? tree.roots : tree.children[open.back()]).push_back(i);
    open.push_back(i);
  }
  return tree;
}

cli::Json optionalText(const std::optional<std::string>& text) { return text ? cli::Json(*text) : cli::Json(nullptr); }

std::vector<FieldChange> fieldChanges(const ElementSnapshot& was, const ElementSnapshot& now) {
  std::vector<FieldChange> out;
  if (was.value != now.value) out.push_back({"value", optionalText(was.value), optionalText(now.value)});
  if (was.title != now.title) out.push_back({"title", optionalText(was.title), optionalText(now.title)});
  // An icon button is known by its description alone: Play becoming Pause is its change.
  if (was.desc != now.desc) out.push_back({"desc", optionalText(was.desc), optionalText(now.desc)});
  if (was.enabled != now.enabled) {
    out.push_back({"enabled", was.enabled ? cli::Json(*was.enabled) : cli::Json(nullptr),
                   now.enabled ? cli::Json(*now.enabled) : cli::Json(nullptr)});
  }
  if (was.focused != now.focused) out.push_back({"focused", was.focused, now.focused});
  if (was.frame != now.frame) {
    out.push_back({"frame", was.frame ? encode(*was.frame) : cli::Json(nullptr),
                   now.frame ? encode(*now.frame) : cli::Json(nullptr)});
  }
  return out;
}

// Pairs two lists of siblings: by label, the k-th of a label with the k-th; then, among
// what is left after the same matched sibling, by role in order. Returns, for each
// position in `after`, its partner in `before` or `none`.
std::vector<size_t> pairSiblings(const std::vector<ElementSnapshot>& beforeElements, const Tree& beforeTree,
                                 const std::vector<size_t>& before, const std::vector<ElementSnapshot>& afterElements,
                                 const Tree& afterTree, const std::vector<size_t>& after) {
  std::vector<size_t> partner(after.size(), none);
  std::vector<bool> taken(before.size(), false);
  std::unordered_map<std::string_view, std::deque<size_t>> byLabel;
  for (size_t i = 0; i < before.size(); ++i) byLabel[beforeTree.labels[before[i]]].push_back(i);
  for (size_t j = 0; j < after.size(); ++j) {
    auto it = byLabel.find(afterTree.labels[after[j]]);
    if (it == byLabel.end() || it->second.empty()) continue;
    partner[j] = it->second.front();
    taken[partner[j]] = true;
    it->second.pop_front();
  }
  // The leftovers, grouped by the matched sibling they follow (in `before` positions).
  std::map<std::pair<size_t, std::string>, std::deque<size_t>> leftovers;
  size_t anchor = none;
  for (size_t i = 0; i < before.size(); ++i) {
    if (taken[i]) {
      anchor = i;
    } else {
      leftovers[{anchor, beforeElements[before[i]].role}].push_back(i);
    }
  }
  anchor = none;
  for (size_t j = 0; j < after.size(); ++j) {
    if (partner[j] != none) {
      anchor = partner[j];
      continue;
    }
    auto it = leftovers.find({anchor, afterElements[after[j]].role});
    if (it == leftovers.end() || it->second.empty()) continue;
    partner[j] = it->second.front();
    it->second.pop_front();
  }
  for (size_t& p : partner) {
    if (p != none) p = before[p];
  }
  return partner;
}

void addSubtree(const Tree& tree, const std::vector<ElementSnapshot>& elements, size_t top,
                std::vector<ElementChange>& out) {
  std::vector<size_t> stack{top};
  while (!stack.empty()) {
    size_t at = stack.back();
    stack.pop_back();
    out.push_back({elements[at], std::nullopt, {}});
    for (size_t child : tree.children[at]) stack.push_back(child);
  }
}

std::string quotedOrNone(const cli::Json& value) {
  if (value.is_null()) return "none";
  if (value.is_string()) return "\"" + listingText(value.get<std::string>(), 120) + "\"";
  if (value.is_boolean()) return value.get<bool>() ? "true" : "false";
  // A frame: "(x, y, width, height)".
  auto number = [](const cli::Json& n) { return cli::formatJSON(n, cli::JsonFlavor::encoder); };
  return "(" + number(value["x"]) + ", " + number(value["y"]) + ", " + number(value["width"]) + ", " +
         number(value["height"]) + ")";
}

std::string headOf(const ElementSnapshot& e) {
  std::string head = std::to_string(e.index) + " " + (e.role.empty() ? "element" : listingText(e.role, 48));
  const auto& label = e.title && !e.title->empty() ? e.title : e.desc;
  if (label && !label->empty()) head += " \"" + listingText(*label, 80) + "\"";
  // The path whole: it is the key the change is known by.
  return head + " at " + listingText(e.path, std::numeric_limits<int64_t>::max());
}

cli::Json elementJSON(const ElementSnapshot& e) {
  cli::Json j = {{"index", e.index}, {"role", e.role}, {"path", e.path}};
  const auto& label = e.title && !e.title->empty() ? e.title : e.desc;
  if (label && !label->empty()) j["label"] = *label;
  return j;
}

// Whether two snapshots show one window, as far as can be told: by window-server number
// where both have one. A number lost or gained means the window list changed under it:
// the window closed and another took its place (a walk falls back on the focused one),
// or it was minimised. Only an unchanged title then says it is the same window.
bool isSameWindow(const AppStateSnapshot& before, const AppStateSnapshot& after) {
  auto number = [](const AppStateSnapshot& s) { return s.window ? s.window->windowID : std::nullopt; };
  auto title = [](const AppStateSnapshot& s) { return s.window ? s.window->title : std::nullopt; };
  if (number(before) && number(after)) return *number(before) == *number(after);
  if (!number(before) && !number(after)) return true;
  return title(before) == title(after);
}

}  // namespace

SnapshotChanges compareSnapshots(const std::optional<AppStateSnapshot>& before, const AppStateSnapshot& after) {
  SnapshotChanges changes;
  if (!before) return changes;
  changes.since = before->generatedAt;
  const auto& was = before->elements;
  const auto& now = after.elements;
  Tree wasTree = treeOf(was), nowTree = treeOf(now);
  std::vector<bool> wasMatched(was.size(), false);

  // Another window altogether: nothing in it is the same element.
  bool sameWindow = isSameWindow(*before, after);
  struct Level {
    const std::vector<size_t>* was;
    const std::vector<size_t>* now;
  };
  static const std::vector<size_t> nothing;
  std::vector<Level> levels{{sameWindow ? &wasTree.roots : &nothing, &nowTree.roots}};
  while (!levels.empty()) {
    Level level = levels.back();
    levels.pop_back();
    std::vector<size_t> partner = pairSiblings(was, wasTree, *level.was, now, nowTree, *level.now);
    for (size_t j = 0; j < level.now->size(); ++j) {
      size_t at = (*level.now)[j];
      if (partner[j] == none) {
        addSubtree(nowTree, now, at, changes.added);
        continue;
      }
      wasMatched[partner[j]] = true;
      if (auto fields = fieldChanges(was[partner[j]], now[at]); !fields.empty()) {
        changes.changed.push_back({now[at], was[partner[j]], std::move(fields)});
      }
      levels.push_back({&wasTree.children[partner[j]], &nowTree.children[at]});
    }
  }
  // What was never paired, with everything below it.
  for (size_t i = 0; i < was.size(); ++i) {
    if (!wasMatched[i]) changes.removed.push_back({was[i], std::nullopt, {}});
  }
  auto byIndex = [](const ElementChange& a, const ElementChange& b) { return a.element.index < b.element.index; };
  std::sort(changes.added.begin(), changes.added.end(), byIndex);
  std::sort(changes.changed.begin(), changes.changed.end(), byIndex);
  return changes;
}

cli::Json changesJSON(const SnapshotChanges& changes) {
  if (!changes.since) return {{"since", nullptr}};
  cli::Json added = cli::Json::array(), removed = cli::Json::array(), changed = cli::Json::array();
  for (const auto& c : changes.added) added.push_back(elementJSON(c.element));
  for (const auto& c : changes.removed) removed.push_back(elementJSON(c.element));
  for (const auto& c : changes.changed) {
    cli::Json j = elementJSON(c.element);
    if (c.before && (c.before->index != c.element.index || c.before->path != c.element.path)) {
      j["before"] = {{"index", c.before->index}, {"path", c.before->path}};
    }
    cli::Json fields = cli::Json::object();
    for (const auto& f : c.fields) fields[f.field] = {{"from", f.from}, {"to", f.to}};
    j["fields"] = fields;
    changed.push_back(std::move(j));
  }
  return {{"since", cli::iso8601(*changes.since)}, {"added", added}, {"removed", removed}, {"changed", changed}};
}

std::string changesText(const SnapshotChanges& changes) {
  std::string text = "<changes>\n";
  if (!changes.since) return text + "No previous snapshot of this application to compare with.\n</changes>";
  text += "Since the snapshot of " + cli::iso8601(*changes.since) + ": ";
  if (changes.added.empty() && changes.removed.empty() && changes.changed.empty()) {
    text += "no changes.\n";
  } else {
    text += std::to_string(changes.added.size()) + " added, " + std::to_string(changes.removed.size()) +
            " removed, " + std::to_string(changes.changed.size()) + " changed.\n";
  }
  for (const auto& c : changes.added) text += "+ " + headOf(c.element) + "\n";
  for (const auto& c : changes.removed) text += "- " + headOf(c.element) + "\n";
  for (const auto& c : changes.changed) {
    std::string fields;
    for (const auto& f : c.fields) {
      fields += (fields.empty() ? "" : "; ") + f.field + " " + quotedOrNone(f.from) + " -> " + quotedOrNone(f.to);
    }
    text += "~ " + headOf(c.element) + ": " + fields + "\n";
  }
  return text + "</changes>";
}

std::optional<AppStateSnapshot> previousSnapshot(const runtime::ProcessValues& values,
                                                 const platform::RunningApplication& app) {
  try {
    AppStateSnapshot cached = loadCachedState(values, app);
    if (cached.pid != app.pid) return std::nullopt;
    return cached;
  } catch (const cli::ToolError&) {
    // Missing, unreadable or not a snapshot: there is nothing to compare with, and the
    // next snapshot replaces it.
    return std::nullopt;
  }
}

SnapshotChanges observeChanges(runtime::CommandContext& context, const cli::Flags& flags) {
  platform::RunningApplication app = apps::resolveApp(cli::requiredFlag(flags, {"--app"}), context.platform.workspace(),
                                                      context.values.exactNameFirstScore);
  std::optional<AppStateSnapshot> before = previousSnapshot(context.values, app);
  if (!before) return {};
  context.platform.clock().sleep(observeSettleSeconds);
  std::optional<std::string> title = cli::flagValue(
      flags, {"--title-contains", "--title_contains", "--window-title-contains", "--window_title_contains"});
  std::optional<uint32_t> window = cli::uint32Flag(flags, {"--window-id", "--window_id"});
  if (!title && !window && before->window) {
    window = before->window->windowID;
    if (!window) title = before->window->title;
  }
  CurrentState now = fetchCurrentState(context, app, title, window, CacheUpdate::none);
  return compareSnapshots(before, now.snapshot);
}

}  // namespace tavlin::snapshot
