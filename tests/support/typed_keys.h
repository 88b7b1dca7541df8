#ifndef KES_TESTS_SUPPORT_TYPED_KEYS_H_
#define KES_TESTS_SUPPORT_TYPED_KEYS_H_

#include <memory>
#include <string>

namespace Kes::test {

/// The keys of the console as a user would press them, in the place of the real ones while the object lives.
/// On Windows the program must be linked with --wrap=__imp__getch.
class TypedKeys {
public:
    TypedKeys();
    ~TypedKeys();
    TypedKeys(const TypedKeys&) = delete;
    TypedKeys& operator=(const TypedKeys&) = delete;

    void press(const std::string& keys);

    /// No more keys will come: who still waits for one is told so, instead of waiting forever.
    void end();

    /// What nobody has read; after end().
    std::string unread();

    struct State;

private:
    std::unique_ptr<State> state_;
};

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_TYPED_KEYS_H_
