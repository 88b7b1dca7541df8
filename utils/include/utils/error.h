#ifndef KES_UTILS_ERROR_H_
#define KES_UTILS_ERROR_H_

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>

/// The errors of the library: every failure is thrown as one of these, by value.
///
/// An error is a location, a message and a code, joined to one text when it is made:
///
///     throw Error(ErrorCodeType::open_failed, "error opening file: 'out.bin'",
///                 "helper:329 Kes::Helper::write_file()");
///     // "helper:329 Kes::Helper::write_file(): error opening file: 'out.bin': val=12 (open_failed)"
///
/// Locations are part of what users quote and search for. They are written out at each throw site and stay as
/// they are when the code around them moves.
namespace Kes {

/// The causes that are the library's own. Values and names are part of the error texts.
enum class ErrorCodeType : std::uint32_t {
    no_error = 0,
    unspecified = 1,
    null_pointer = 2,
    bad_argument = 3,
    unsupported = 4,
    internal_error = 5,
    invalid_state = 6,
    timeout = 7,
    not_found = 8,
    not_registered = 9,
    not_initialized = 10,
    empty = 11,
    open_failed = 12,
    load_failed = 13,
    resolve_host_failed = 14,
    connection_failed = 15,
    user_abort = 16,
    os_err = 17,
    lib_err = 18
};

/// The part that all code objects share: the number and what it means.
template <typename T>
class ErrorCodeTempl {
public:
    /// The code as it stands at the end of an error text.
    virtual std::string to_string() const = 0;

    T value;
    std::string text;

protected:
    ErrorCodeTempl(T code, std::string meaning) : value(code), text(std::move(meaning)) {}
    ErrorCodeTempl(const ErrorCodeTempl&) = default;
    ErrorCodeTempl(ErrorCodeTempl&&) noexcept = default;
    ErrorCodeTempl& operator=(const ErrorCodeTempl&) = default;
    ErrorCodeTempl& operator=(ErrorCodeTempl&&) noexcept = default;
    ~ErrorCodeTempl() = default; // held by value only
};

/// A cause of the library's own. Text form: "val=12 (open_failed)"; values without a name are "unknown".
class ErrorCode final : public ErrorCodeTempl<ErrorCodeType> {
public:
    ErrorCode(ErrorCodeType code); // not explicit: throw sites name the cause alone
    std::string to_string() const override;
};

/// Where the text of a Windows error number comes from: (number, language), see platform::system_message().
using SystemMessageLookup = std::function<std::optional<std::string>(unsigned long, unsigned long)>;

/// A Windows error number. Text form: "val=2 [0x2] (The system cannot find the file specified.)".
/// Make it right after the failing call, before anything else can change the last error.
class WinErrorCode final : public ErrorCodeTempl<unsigned long> {
public:
    explicit WinErrorCode(unsigned long code);

    /// As above, with another source of texts than the system.
    WinErrorCode(unsigned long code, const SystemMessageLookup& lookup);

    std::string to_string() const override;
};

/// The return value of an OpenSSL or libp11 function, with everything that stands on this thread's OpenSSL
/// error queue, which is empty afterwards. Make it before any clean-up: that could add to the queue. Text
/// form: "rc=0", then "\n" and the queue's lines if there are any.
class OsslErrorCode final : public ErrorCodeTempl<int> {
public:
    explicit OsslErrorCode(int code);
    std::string to_string() const override;
};

/// The root of all errors.
class ErrorBase : public std::exception {
public:
    /// Joins the parts that are not empty with ": ". A null location counts as "".
    ErrorBase(const char* location, const std::string& message, const std::string& code_text);

    /// The whole text. Never null, valid as long as the error.
    const char* what() const noexcept override { return text_.c_str(); }

private:
    std::string text_;
};

/// An error that is nothing but a message.
class ErrorString final : public ErrorBase {
public:
    explicit ErrorString(const std::string& message) : ErrorBase("", "", message) {}
};

template <typename C>
class ErrorTempl : public ErrorBase {
public:
    ErrorTempl(const C& code, const std::string& message, const char* location)
        : ErrorBase(location, message, code.to_string()), code_(code) {}

    const C& code() const noexcept { return code_; }

private:
    C code_;
};

class Error final : public ErrorTempl<ErrorCode> {
public:
    using ErrorTempl::ErrorTempl;
};

class WinError final : public ErrorTempl<WinErrorCode> {
public:
    using ErrorTempl::ErrorTempl;
};

class OsslError final : public ErrorTempl<OsslErrorCode> {
public:
    using ErrorTempl::ErrorTempl;
};

} // namespace Kes

#endif // KES_UTILS_ERROR_H_
