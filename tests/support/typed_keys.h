#ifndef KES_TESTS_SUPPORT_TYPED_KEYS_H_
#define KES_TESTS_SUPPORT_TYPED_KEYS_H_

#include <memory>
#include <string>

namespace Kes::test {

/// Replaces the console's keyboard during the object's lifetime. On Windows, the program must be linked with
/// --wrap=__imp__getch.
class TypedKeys {
public:
    TypedKeys();
    ~TypedKeys();
    TypedKeys(const TypedKeys&) = delete;
    TypedKeys& operator=(const TypedKeys&) = delete;

    void press(const std::string& keys);

    /// Ends the input: reading a key reports the end instead of waiting.
    void end();

    /// The keys that were not read. Call it after end().
    std::string unread();

    struct State;

private:
    std::unique_ptr<State> state_;
};

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_TYPED_KEYS_H_
