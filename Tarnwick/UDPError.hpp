#pragma once

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <system_error>

namespace [[gnu::visibility("default")]] tarnwick {

/// The texts that an error may offer to a person. All are absent unless overridden.
struct LocalizedError {
  virtual ~LocalizedError() = default;

  /// What went wrong.
  [[nodiscard]] virtual std::optional<std::string> errorDescription() const { return {}; }

  /// Why.
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

/// The one error type: thrown when an endpoint cannot be set up or is started twice. Trouble on a
/// running endpoint is never thrown. A value like any other: compare it, copy it, hash it.
class UDPError final : public std::exception, public LocalizedError {
 public:
  /// What went wrong. The raw values run upward by one.
  enum Case : std::int64_t {
    noSocket = -999,      ///< the system gave no socket
    bindSocket,           ///< the port is taken, or not ours to take
    badAddress,           ///< the peer's address is none that inet_aton(3) takes
    alreadyInProgress,    ///< the endpoint is running already
    setupForNonBlocking,  ///< the socket cannot be made non-blocking
    threadLock,           ///< the system gave no lock
  };

  /// Implicit, so that a case is thrown and compared by its name alone. A value that is no case is
  /// a fatal error.
  UDPError(Case value) noexcept;  // NOLINT(google-explicit-constructor)

  /// The error with this raw value; absent when there is none.
  [[nodiscard]] static std::optional<UDPError> fromRawValue(std::int64_t rawValue) noexcept;

  /// The number of the case.
  [[nodiscard]] std::int64_t rawValue() const noexcept { return case_; }

  /// What went wrong, in one English phrase. The texts of LocalizedError stay absent.
  [[nodiscard]] std::string localizedDescription() const { return what(); }

  /// The raw value in a category of this type's own, named "tarnwick::UDPError".
  [[nodiscard]] std::error_code code() const noexcept;

  /// The same text as localizedDescription().
  [[nodiscard]] const char* what() const noexcept override;

  /// Equal when the case is.
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
