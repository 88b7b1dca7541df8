#ifndef KES_TESTS_SUPPORT_KEY_FINDINGS_H_
#define KES_TESTS_SUPPORT_KEY_FINDINGS_H_

#include "base/key_observer.h"
#include "types.h"

namespace Kes::test {

/// Records what a scan finds: one text for each call.
class KeyFindings final : public KeyObserver {
public:
    void found_key(const KeyFinding& finding) override { add("key ", finding); }
    void found_lone_certificate(const KeyFinding& finding) override { add("lone certificate ", finding); }
    void failed_container(const std::string& container, std::uint32_t key_type, const char* reason) override;

    Lines lines;

private:
    void add(const char* what, const KeyFinding& finding);
};

} // namespace Kes::test

#endif // KES_TESTS_SUPPORT_KEY_FINDINGS_H_
