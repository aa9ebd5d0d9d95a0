#include "Tarnwick/UDPError.hpp"

#include <array>
#include <cstddef>

#include "Tarnwick/Platform/FatalError.hpp"
#include "Tarnwick/Platform/NeverDestroyed.hpp"

namespace tarnwick {
namespace {

/// In the order of the cases.
constexpr std::array texts{"Could not obtain socket",
                           "Could not bind socket",
                           "Address string given is not valid",
                           "operation in progress",
                           "Could not setup socket for non-blocking operation",
                           "Could not obtain thread lock"};

bool isCase(std::int64_t rawValue) {
  return rawValue >= UDPError::noSocket && rawValue <= UDPError::threadLock;
}

class Category final : public std::error_category {
 public:
  [[nodiscard]] const char* name() const noexcept override { return "tarnwick::UDPError"; }
  [[nodiscard]] std::string message(int value) const override {
    const std::optional<UDPError> error = UDPError::fromRawValue(value);
    return error ? error->localizedDescription() : "Unknown error";
  }
};

}  // namespace

UDPError::UDPError(Case value) noexcept : case_(value) {
  if (!isCase(value)) fatalError("Unexpectedly found nil while unwrapping an Optional value");
}

std::optional<UDPError> UDPError::fromRawValue(std::int64_t rawValue) noexcept {
  if (!isCase(rawValue)) return std::nullopt;
  return UDPError(static_cast<Case>(rawValue));
}

std::error_code UDPError::code() const noexcept {
  static NeverDestroyed<Category> category;
  return {static_cast<int>(case_), *category};
}

const char* UDPError::what() const noexcept {
  return texts[static_cast<std::size_t>(case_ - noSocket)];
}

}  // namespace tarnwick
