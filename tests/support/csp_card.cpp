#include "csp_card.h"

#include <fstream>

#include "certificates.h"
#include "handle_balance.h"

namespace Kes::test {
namespace {

const std::filesystem::path prepared(MARVO_CERTIFICATES);

std::string file_name(unsigned int key_spec, const char* ending) { return std::to_string(key_spec) + ending; }

} // namespace

Bytes prepared_certificate(const std::string& name) {
    return read_bytes(prepared / "certs" / (name + ".der"));
}

Bytes prepared_certificate(const std::string& container, unsigned int key_spec) {
    return read_bytes(prepared / "containers" / container / file_name(key_spec, ".der"));
}

Bytes prepared_key(const std::string& container, unsigned int key_spec) {
    return read_bytes(prepared / "containers" / container / file_name(key_spec, ".blob"));
}

Bytes numbered_certificate(int number) {
    static const Bytes original = prepared_certificate("number");
    return with_number(original, number);
}

CspCard::CspCard() { std::filesystem::create_directory(dir_.file("card")); }

void CspCard::add(const std::string& prepared_container, const std::string& container) const {
    std::filesystem::copy(prepared / "containers" / prepared_container, dir_.path() / "card" / container);
}

void CspCard::remove_certificate(const std::string& container, unsigned int key_spec) const {
    std::filesystem::remove(dir_.path() / "card" / container / file_name(key_spec, ".der"));
}

void CspCard::replace_certificate(const std::string& container, unsigned int key_spec,
                                  const Bytes& content) const {
    std::ofstream file(dir_.path() / "card" / container / file_name(key_spec, ".der"), std::ios::binary);
    file.write(reinterpret_cast<const char*>(content.data()), static_cast<std::streamsize>(content.size()));
}

void CspCard::pull_out() const { std::filesystem::rename(dir_.file("card"), dir_.file("pulled out")); }
void CspCard::insert() const { std::filesystem::rename(dir_.file("pulled out"), dir_.file("card")); }

void CspCard::fail(const std::string& which, unsigned long code) const {
    std::ofstream(dir_.path() / "card" / "faults", std::ios::app) << which << '=' << code << '\n';
}

void CspCard::clear_failures() const { std::filesystem::remove(dir_.path() / "card" / "faults"); }

Lines CspCard::log() const { return split_lines(read_text((dir_.path() / "card" / "calls").string())); }

Lines CspCard::calls() const {
    Lines calls;
    for (const std::string& line : log())
        calls.push_back(line.substr(0, line.find(' ')));
    return calls;
}

Lines CspCard::unreleased() const { return unbalanced_handles(log()); }

} // namespace Kes::test
