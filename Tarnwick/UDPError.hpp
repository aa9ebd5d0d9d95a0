#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <system_error>

namespace [[gnu::visibility("default")]] tarnwick {

/// The texts that an error may show to a user. All are absent unless overridden.
struct LocalizedError {
  virtual ~LocalizedError() = default;

  /// What went wrong.
  [[nodiscard]] virtual std::optional<std::string> errorDescription() const { return {}; }

  /// Why it went wrong.
  [[nodiscard]] virtual std::optional<std::string> failureReason() const { return {}; }

  /// What to do about it.
  [[nodiscard]] virtual std::optional<std::string> recoverySuggestion() const { return {}; }

  /// Where to read more.
  [[nodiscard]] virtual std::optional<std::string> helpAnchor() const { return {}; }

 protected:
  LocalizedError() = default;
  LocalizedError(const LocalizedError&) = default;
  LocalizedError& operator=(const LocalizedError&) = default;
};

/// The framework's only error type: thrown if an endpoint cannot be set up or is started twice.
/// Socket errors on a running endpoint are not thrown. Copyable, comparable and hashable.
class UDPError final : public std::exception, public LocalizedError {
 public:
  /// What went wrong. The raw values increase by one.
  enum Case : std::int64_t {
    noSocket = -999,      ///< the system provided no socket
    bindSocket,           ///< the port is in use, or the process may not bind it
    badAddress,           ///< inet_aton(3) does not accept the peer's address
    alreadyInProgress,    ///< the endpoint is already running
    setupForNonBlocking,  ///< the socket cannot be made non-blocking
    threadLock,           ///< the system provided no lock
  };

  /// Implicit, so that a case can be thrown and compared by its name alone. A value that is not a
  /// case is a fatal error.
  UDPError(Case value) noexcept;  // NOLINT(google-explicit-constructor)

  /// Returns the error with this raw value; absent if there is none.
  [[nodiscard]] static std::optional<UDPError> fromRawValue(std::int64_t rawValue) noexcept;

  /// The number of the case.
  [[nodiscard]] std::int64_t rawValue() const noexcept { return case_; }

  /// Describes the error in one English phrase. The texts of LocalizedError stay absent.
  [[nodiscard]] std::string localizedDescription() const { return what(); }

  /// The raw value in this type's own error category, "tarnwick::UDPError".
  [[nodiscard]] std::error_code code() const noexcept;

  /// The same text as localizedDescription().
  [[nodiscard]] const char* what() const noexcept override;

  /// Compares the cases.
  friend bool operator==(const UDPError& left, const UDPError& right) noexcept {
    return left.case_ == right.case_;
  }

 private:
  Case case_;
};

}  // namespace tarnwick

template <>
struct std::hash<tarnwick::UDPError> {
  std::size_t operator()(const tarnwick::UDPError& error) const noexcept {
    return std::hash<std::int64_t>()(error.rawValue());
  }
};
