#ifndef KES_UTILS_ERROR_H_
#define KES_UTILS_ERROR_H_

#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>

/// The exceptions of the library. Every failure is thrown as one of these classes, by value.
///
/// An error consists of a location, a message and a code. The constructor joins them to one text:
///
///     throw Error(ErrorCodeType::open_failed, "error opening file: 'out.bin'",
///                 "helper:329 Kes::Helper::write_file()");
///     // "helper:329 Kes::Helper::write_file(): error opening file: 'out.bin': val=12 (open_failed)"
///
/// Users quote locations and search for them. Each throw site contains its location as a literal, which does
/// not change when the code around it moves.
namespace Kes {

/// The causes of the library's own errors. Error texts contain the numbers and names, so neither changes.
/// That includes causes that no error has now.
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

/// The base of the code classes: a number and its meaning.
template <typename T>
class ErrorCodeTempl {
public:
    /// The code in the format that ends an error text.
    virtual std::string to_string() const = 0;

    T value;
    std::string text; ///< the meaning of the value

protected:
    ErrorCodeTempl(T code, std::string meaning) : value(code), text(std::move(meaning)) {}
    ErrorCodeTempl(const ErrorCodeTempl&) = default;
    ErrorCodeTempl(ErrorCodeTempl&&) noexcept = default;
    ErrorCodeTempl& operator=(const ErrorCodeTempl&) = default;
    ErrorCodeTempl& operator=(ErrorCodeTempl&&) noexcept = default;
    ~ErrorCodeTempl() = default; // not virtual: nothing deletes a code through this class
};

/// The code of an error that the library itself detects. Format: "val=12 (open_failed)". A value without a
/// name is "unknown".
class ErrorCode final : public ErrorCodeTempl<ErrorCodeType> {
public:
    ErrorCode(ErrorCodeType code); // not explicit, so that throw sites can pass the cause itself
    std::string to_string() const override;
};

/// A function that returns the text of a Windows error number, with the arguments and result of
/// platform::system_message().
using SystemMessageLookup = std::function<std::optional<std::string>(unsigned long, unsigned long)>;

/// A Windows error number. Format: "val=2 [0x2] (The system cannot find the file specified.)".
/// Call GetLastError() directly after the failed call, before another call can change the number.
class WinErrorCode final : public ErrorCodeTempl<unsigned long> {
public:
    explicit WinErrorCode(unsigned long code);

    /// Takes the text from the lookup function. Tests use this constructor with texts of their own.
    WinErrorCode(unsigned long code, const SystemMessageLookup& lookup);

    std::string to_string() const override;
};

/// The return value of an OpenSSL or libp11 function, and the content of the thread's OpenSSL error queue.
/// The constructor empties the queue. Construct the code before any clean-up, which could add to the queue.
/// Format: "rc=0", followed by "\n" and the lines of the queue if it is not empty.
class OsslErrorCode final : public ErrorCodeTempl<int> {
public:
    explicit OsslErrorCode(int code);
    std::string to_string() const override;
};

/// The base class of all errors.
class ErrorBase : public std::exception {
public:
    /// Joins the parts with ": " and leaves out empty ones. A null location counts as "".
    ErrorBase(const char* location, const std::string& message, const std::string& code_text);

    /// The complete text. Never null; valid as long as the error exists.
    const char* what() const noexcept override { return whole_text.c_str(); }

private:
    std::string whole_text;
};

/// An error with a message, but without a location and a code.
class ErrorString final : public ErrorBase {
public:
    explicit ErrorString(const std::string& message) : ErrorBase("", "", message) {}
};

/// The base of the errors with a code of class C.
template <typename C>
class ErrorTempl : public ErrorBase {
public:
    ErrorTempl(const C& code, const std::string& message, const char* location)
        : ErrorBase(location, message, code.to_string()), code_(code) {}

    const C& code() const noexcept { return code_; }

private:
    C code_;
};

/// A failure that the library itself detects.
class Error final : public ErrorTempl<ErrorCode> {
public:
    using ErrorTempl::ErrorTempl;
};

/// A failed call of a Windows function.
class WinError final : public ErrorTempl<WinErrorCode> {
public:
    using ErrorTempl::ErrorTempl;
};

/// A failed call of an OpenSSL or libp11 function.
class OsslError final : public ErrorTempl<OsslErrorCode> {
public:
    using ErrorTempl::ErrorTempl;
};

} // namespace Kes

#endif // KES_UTILS_ERROR_H_
