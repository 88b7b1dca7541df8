#include "file_tokens.h"

#include <array>
#include <cstring>
#include <fstream>
#include <openssl/evp.h>
#include <stdexcept>

#include "utils/helper.h"

namespace Kes::test {
namespace {

namespace fs = std::filesystem;

const fs::path card_files = MARVO_CARD_FILES;

std::string hash_of(const char* text) {
    std::array<unsigned char, EVP_MAX_MD_SIZE> hash{};
    std::size_t length = 0;
    ::EVP_Q_digest(nullptr, "SHA256", nullptr, text, std::strlen(text), hash.data(), &length);
    return Helper::bytes_to_hex(hash.data(), length, "");
}

void write_lines(const fs::path& name, const Lines& lines) {
    std::ofstream file(name);
    for (const std::string& line : lines)
        file << line << '\n';
    if (!file.flush()) throw std::runtime_error(name.string() + " cannot be written");
}

} // namespace

FileToken::FileToken(fs::path folder_in)
    : folder_(std::move(folder_in)),
      settings_{
          {"label", "Card 1"}, {"manufacturer", "Card maker"}, {"model", "Model 7"}, {"serial", "0042"}} {
    fs::create_directories(folder_);
    set("pin_sha256", hash_of(file_token_pin));
}

void FileToken::set(const std::string& name, const std::string& value) {
    settings_[name] = value;
    Lines lines;
    for (const auto& setting : settings_)
        lines.push_back(setting.first + "=" + setting.second);
    write("token", lines);
}

void FileToken::remove() const { write("removed", {}); }

void FileToken::insert() const { fs::remove(folder_ / "removed"); }

void FileToken::add(const std::string& id, const std::string& kinds, const std::string& file,
                    const std::string& label) {
    for (const char* ending : {".crt", ".key"})
        fs::copy_file(card_files / (file + ending), folder_ / (file + ending),
                      fs::copy_options::overwrite_existing);
    objects_.push_back(id + "=" + kinds + " " + file + " " + label);
    write("objects", objects_);
}

void FileToken::write(const std::string& name, const Lines& lines) const {
    write_lines(folder_ / name, lines);
}

FileTokens::FileTokens() { write_lines(dir_.path() / "calls", {}); }

std::string FileTokens::module() { return MARVO_FILE_TOKENS_MODULE; }

FileToken FileTokens::add_token(const std::string& reader) const { return FileToken(dir_.path() / reader); }

void FileTokens::add_empty_reader(const std::string& reader) const {
    fs::create_directories(dir_.path() / reader);
}

void FileTokens::fail(const Lines& lines) const { write_lines(dir_.path() / "fail", lines); }

void FileTokens::clear_failures() const { fs::remove(dir_.path() / "fail"); }

Lines FileTokens::calls() const { return split_lines(read_file(dir_.file("calls"))); }

} // namespace Kes::test
