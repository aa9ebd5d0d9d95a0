#include "Tarnwick/UDPError.hpp"

#include "Tarnwick/Platform/NeverDestroyed.hpp"

namespace tarnwick {
namespace {

class Category final : public std::error_category {
 public:
  [[nodiscard]] const char* name() const noexcept override { return "tarnwick::UDPError"; }
  [[nodiscard]] std::string message(int value) const override {
    const std::optional<UDPError> error = UDPError::fromRawValue(value);
    return error ? error->localizedDescription() : "Unknown error";
  }
};

}  // namespace

std::optional<UDPError> UDPError::fromRawValue(std::int64_t rawValue) noexcept {
  if (rawValue < noSocket || rawValue > threadLock) return std::nullopt;
  return UDPError(static_cast<Case>(rawValue));
}

std::error_code UDPError::code() const noexcept {
  static NeverDestroyed<Category> category;
  return {static_cast<int>(case_), *category};
}

const char* UDPError::what() const noexcept {
  switch (case_) {
    case noSocket:
      return "Could not obtain socket";
    case bindSocket:
      return "Could not bind socket";
    case badAddress:
      return "Address string given is not valid";
    case alreadyInProgress:
      return "operation in progress";
    case setupForNonBlocking:
      return "Could not setup socket for non-blocking operation";
    case threadLock:
      return "Could not obtain thread lock";
  }
  return "";
}

}  // namespace tarnwick
