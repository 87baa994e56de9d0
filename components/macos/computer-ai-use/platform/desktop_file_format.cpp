#include "platform/desktop_file_format.h"

namespace tavlin::platform {

const std::map<std::string, std::string>& elementAttributeShortcuts() {
  static const std::map<std::string, std::string> shortcuts = {
      {"role", "AXRole"},
      {"subrole", "AXSubrole"},
      {"title", "AXTitle"},
      {"description", "AXDescription"},
      {"identifier", "AXIdentifier"},
      {"roleDescription", "AXRoleDescription"},
      {"value", "AXValue"},
      {"enabled", "AXEnabled"},
      {"focused", "AXFocused"},
      {"position", "AXPosition"},
      {"size", "AXSize"},
  };
  return shortcuts;
}

const std::map<std::string, AXError>& axErrorNames() {
  static const std::map<std::string, AXError> names = {
      {"failure", AXError::failure},
      {"illegalArgument", AXError::illegalArgument},
      {"invalidUIElement", AXError::invalidUIElement},
      {"invalidUIElementObserver", AXError::invalidUIElementObserver},
      {"cannotComplete", AXError::cannotComplete},
      {"attributeUnsupported", AXError::attributeUnsupported},
      {"actionUnsupported", AXError::actionUnsupported},
      {"notificationUnsupported", AXError::notificationUnsupported},
      {"notImplemented", AXError::notImplemented},
      {"notificationAlreadyRegistered", AXError::notificationAlreadyRegistered},
      {"notificationNotRegistered", AXError::notificationNotRegistered},
      {"apiDisabled", AXError::apiDisabled},
      {"noValue", AXError::noValue},
      {"parameterizedAttributeUnsupported", AXError::parameterizedAttributeUnsupported},
      {"notEnoughPrecision", AXError::notEnoughPrecision},
  };
  return names;
}

std::optional<std::string> axErrorName(AXError error) {
  for (const auto& [name, code] : axErrorNames()) {
    if (code == error) return name;
  }
  return std::nullopt;
}

}  // namespace tavlin::platform
