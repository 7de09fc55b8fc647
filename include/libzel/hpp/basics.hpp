/// @file
/// Results, bytes, and exceptions in callbacks. Included by libzel.hpp.
#pragma once

#include <libzel/libzelx.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <limits>
#include <memory>
#include <mutex>
#include <ostream>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

namespace zel {

/// The unit of all time-outs. A negative one is refused (ZEL_E_PARAM).
using Milliseconds = std::chrono::milliseconds;

/// The data does not fit into a frame; nothing was sent.
inline constexpr int32_t kErrorTooLong = LIBZELX_E_TOO_LONG;
/// Ended before its end: a request by Cancel, a stop or a release; a transfer by its callback, by Cancel, or
/// by the end of the library.
inline constexpr int32_t kErrorCancelled = LIBZELX_E_CANCELLED;

/// The most payload bytes that a request carries.
inline constexpr size_t kMaxPayload = 10485760 - 29;

namespace detail {

template <typename Item>
inline constexpr bool kIsByte =
    std::is_same_v<Item, uint8_t> || std::is_same_v<Item, int8_t> || std::is_same_v<Item, std::byte>;
template <typename Text>
inline constexpr bool kIsText = std::is_same_v<Text, const char*> || std::is_same_v<Text, char*>;

}  // namespace detail

/// A code and its text. Small: pass it by value.
class [[nodiscard]] Result {
 public:
  constexpr Result() = default;
  /// The result with a code of libzel.h or libzelx.h.
  constexpr explicit Result(int32_t code) : code_(code) {}

  /// True when the code is 0.
  constexpr bool IsOk() const { return code_ == ZEL_OK; }
  /// As IsOk.
  constexpr explicit operator bool() const { return IsOk(); }
  /// A code of libzel.h or of libzelx.h, or whatever a server or device answered.
  constexpr int32_t Code() const { return code_; }
  /// The constant English text of the code.
  const char* Text() const { return libzelx_strerror(code_); }
  /// The same for code that speaks std::error_code. It compares equal to std::errc::timed_out for
  /// ZEL_E_TIMEOUT, to not_connected for ZEL_E_DISCONNECTED, and so on, where there is one.
  std::error_code ErrorCode() const { return {code_, Category()}; }
  /// The category of all codes, "zel".
  static const std::error_category& Category();
  /// Says on purpose that a result does not matter.
  constexpr void Ignore() const {}

  /// Compares codes.
  friend constexpr bool operator==(Result left, Result right) { return left.code_ == right.code_; }
  /// Compares codes.
  friend constexpr bool operator!=(Result left, Result right) { return left.code_ != right.code_; }
  /// Writes "recv message timeout (4104)".
  friend std::ostream& operator<<(std::ostream& out, Result result) {
    return out << result.Text() << " (" << result.code_ << ')';
  }

 private:
  int32_t code_ = ZEL_OK;
};

namespace detail {

class ErrorCategory final : public std::error_category {
 public:
  const char* name() const noexcept override { return "zel"; }
  std::string message(int code) const override { return Result(code).Text(); }
  std::error_condition default_error_condition(int code) const noexcept override {
    switch (code) {
      case ZEL_E_TIMEOUT: return std::errc::timed_out;
      case ZEL_E_DISCONNECTED: return std::errc::not_connected;
      case ZEL_E_PARAM: return std::errc::invalid_argument;
      case ZEL_E_MEMORY: return std::errc::not_enough_memory;
      case LIBZELX_E_TOO_LONG: return std::errc::message_size;
      case LIBZELX_E_CANCELLED: return std::errc::operation_canceled;
      case LIBZELX_E_WOULD_BLOCK: return std::errc::resource_deadlock_would_occur;
      default: return {code, *this};
    }
  }
};

}  // namespace detail

inline const std::error_category& Result::Category() {
  static const auto* const category = new detail::ErrorCategory;
  return *category;
}

/// A result with a value. The value of a failed call is empty (T{}) unless the call says otherwise.
template <typename T>
class [[nodiscard]] ValueOf : public Result {
 public:
  /// A result and its value.
  ValueOf(Result result, T value) : Result(result), value_(std::move(value)) {}

  /// @name The value
  /// @{

  /// There is one in every case; what it is after a failure, the call says.
  T& operator*() & { return value_; }
  const T& operator*() const& { return value_; }
  T&& operator*() && { return std::move(value_); }
  T* operator->() { return &value_; }
  const T* operator->() const { return &value_; }
  /// @}

  /// The value when the code is 0, else the other one.
  template <typename Other>
  T value_or(Other&& other) const& {
    return IsOk() ? value_ : static_cast<T>(std::forward<Other>(other));
  }
  /// As above, without a copy.
  template <typename Other>
  T value_or(Other&& other) && {
    return IsOk() ? std::move(value_) : static_cast<T>(std::forward<Other>(other));
  }

 private:
  T value_;
};

/// The result of a call that cannot fail on an object that was made well. It may be left alone.
class Done : public Result {
 public:
  /// A result of the library, a code.
  explicit Done(int32_t code) : Result(code) {}
};

/// The result of a call that needs the link.
class [[nodiscard]] LinkResult : public Result {
 public:
  /// A result and the reason.
  explicit LinkResult(Result result, std::string reason = {}) : Result(result), reason_(std::move(reason)) {}
  /// Why the link failed, "connect 10.0.0.9:9999: refused", when that is the cause; else empty.
  const std::string& Reason() const { return reason_; }

 private:
  std::string reason_;
};

/// A LinkResult with a value.
template <typename T>
class [[nodiscard]] LinkValueOf : public ValueOf<T> {
 public:
  /// A result, its value, and the reason.
  LinkValueOf(Result result, T value, std::string reason = {})
      : ValueOf<T>(result, std::move(value)), reason_(std::move(reason)) {}
  /// As LinkResult::Reason.
  const std::string& Reason() const { return reason_; }

 private:
  std::string reason_;
};

/// A view of bytes that somebody else owns (a std::span takes one as it is), made from anything that holds
/// bytes or characters in a row: a string, a literal (without its NUL), a std::vector<uint8_t>, a std::array,
/// a std::span, an array of bytes, or a pointer and a size. What could be meant in two ways does not compile.
class Bytes {
 public:
  constexpr Bytes() = default;
  /// @name From bytes in a row
  /// @{

  /// The view holds no copy: what it is made from must live as long as the view is used.
  constexpr Bytes(const uint8_t* data, size_t size) : data_(data), size_(size) {}
  Bytes(const char* data, size_t size) : Bytes(reinterpret_cast<const uint8_t*>(data), size) {}
  /// No bytes are Bytes().
  Bytes(std::nullptr_t, size_t) = delete;
  /// A literal, with the NULs inside it.
  template <size_t kSize>
  Bytes(const char (&literal)[kSize]) : Bytes(literal, literal[kSize - 1] == '\0' ? kSize - 1 : kSize) {}
  /// A text up to its NUL, or all of it? Say std::string_view(buffer), or {buffer, size}.
  template <size_t kSize>
  Bytes(char (&)[kSize]) = delete;
  /// All of the array.
  template <typename Item, size_t kSize, std::enable_if_t<detail::kIsByte<Item>, int> = 0>
  Bytes(const Item (&array)[kSize]) : Bytes(reinterpret_cast<const uint8_t*>(array), kSize) {}
  /// A text up to its NUL; null is no bytes.
  template <typename Text, std::enable_if_t<detail::kIsText<Text>, int> = 0>
  Bytes(const Text& text) : Bytes(text, text != nullptr ? std::char_traits<char>::length(text) : 0) {}
  /// All of the container.
  template <typename Container,
            typename Item = std::remove_pointer_t<decltype(std::declval<Container&>().data())>,
            typename = std::enable_if_t<sizeof(Item) == 1 && std::is_trivially_copyable_v<Item> &&
                                        !std::is_same_v<std::decay_t<Container>, Bytes>>>
  Bytes(const Container& container)
      : data_(reinterpret_cast<const uint8_t*>(container.data())), size_(container.size()) {}
  /// @}

  /// @name As of any container
  /// @{

  /// As the member function of a container that has this name.
  constexpr const uint8_t* data() const { return data_; }
  constexpr size_t size() const { return size_; }
  constexpr bool empty() const { return size_ == 0; }
  constexpr const uint8_t* begin() const { return data_; }
  constexpr const uint8_t* end() const { return data_ + size_; }
  constexpr uint8_t operator[](size_t index) const { return data_[index]; }
  /// @}

  /// The same bytes as a text; a view too.
  std::string_view AsText() const { return {reinterpret_cast<const char*>(data_), size_}; }
  /// The bytes themselves, to keep.
  std::vector<uint8_t> Copy() const { return {begin(), end()}; }

 private:
  const uint8_t* data_ = nullptr;
  size_t size_ = 0;
};

/// Called on the thread of a callback that threw; must not throw itself.
using ExceptionHandler = std::function<void(std::exception_ptr)>;

namespace detail {

/// A replaceable callback. Whoever calls it holds a copy of its own, so that it is never destroyed while it
/// runs.
template <typename Signature>
class Slot {
 public:
  using Function = std::function<Signature>;
  using Held = std::shared_ptr<const Function>;

  /// Gives back what was there, for the caller to let go of outside every lock: its destructor may be
  /// anything.
  Held Exchange(Function function) {
    Held fresh = function ? std::make_shared<const Function>(std::move(function)) : nullptr;
    const std::lock_guard<std::mutex> lock(mutex_);
    std::swap(function_, fresh);
    return fresh;
  }
  Held Get() const {
    const std::lock_guard<std::mutex> lock(mutex_);
    return function_;
  }

 private:
  mutable std::mutex mutex_;
  Held function_;
};

/// The objects below are never destroyed: the library's own threads run until the process ends.
inline Slot<void(std::exception_ptr)>& ExceptionSlot() {
  static auto* const slot = new Slot<void(std::exception_ptr)>;
  return *slot;
}

/// Runs a piece of a callback; false when it threw.
template <typename Function>
bool Contain(Function&& function) noexcept {
  try {
    function();
    return true;
  } catch (...) {
    const auto handler = ExceptionSlot().Get();
    if (handler == nullptr) std::terminate();
    (*handler)(std::current_exception());
    return false;
  }
}

inline bool IsNegative(Milliseconds time) { return time < Milliseconds::zero(); }

/// Of a time-out that is not negative.
template <typename Number>
Number Clamp(Milliseconds time) {
  using Limits = std::numeric_limits<Number>;
  if (IsNegative(time)) return 0;
  if (static_cast<uint64_t>(time.count()) > static_cast<uint64_t>((Limits::max)())) return (Limits::max)();
  return static_cast<Number>(time.count());
}

}  // namespace detail

/// Sets the handler for all callbacks of this program; an empty one brings back std::terminate.
inline void SetExceptionHandler(ExceptionHandler handler) {
  (void)detail::ExceptionSlot().Exchange(std::move(handler));
}

}  // namespace zel
