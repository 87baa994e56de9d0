#pragma once
// The accessibility port over the AX C API.
#include "platform/accessibility.h"

namespace tavlin::macos {

class MacAccessibility final : public platform::Accessibility {
 public:
  bool isProcessTrusted(bool prompt) override;
  platform::Element applicationElement(int32_t pid) override;
  platform::Element systemWideElement() override;
  platform::AXCopyResult copyAttributeValue(const platform::Element& element, const std::string& attribute) override;
  platform::AXError copyMultipleAttributeValues(const platform::Element& element,
                                                const std::vector<std::string>& attributes,
                                                std::vector<platform::AXCopyResult>& results) override;
  platform::AXCopyResult copyActionNames(const platform::Element& element) override;
  platform::AXError isAttributeSettable(const platform::Element& element, const std::string& attribute,
                                        bool& settable) override;
  platform::AXError performAction(const platform::Element& element, const std::string& action) override;
  platform::AXError setAttributeValue(const platform::Element& element, const std::string& attribute,
                                      const std::string& text) override;
  platform::AXError setAttributeElements(const platform::Element& element, const std::string& attribute,
                                         const std::vector<platform::Element>& elements) override;
  uint64_t hash(const platform::Element& element) override;
  bool sameElement(const platform::Element& a, const platform::Element& b) override;
  platform::AXError setMessagingTimeout(const platform::Element& element, float seconds) override;
};

}  // namespace tavlin::macos
