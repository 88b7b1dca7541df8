#include "card_objects.h"

#include <map>
#include <openssl/pem.h>
#include <sstream>

#include "call_log.h"

namespace Kes::test {
namespace {

BioPtr open_card_file(const std::string& name) {
    BioPtr file(::BIO_new_file(card_file(name).c_str(), "rb"));
    if (!file) note_violation("the card has no file " + name);
    return file;
}

std::vector<unsigned char> bytes_of(const std::string& hex) {
    std::vector<unsigned char> bytes;
    for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
        bytes.push_back(static_cast<unsigned char>(std::stoul(hex.substr(i, 2), nullptr, 16)));
    return bytes;
}

char letter_of(CardKind kind) {
    switch (kind) {
    case CardKind::certificate:
        return 'c';
    case CardKind::private_key:
        return 'k';
    case CardKind::public_key:
        return 'p';
    }
    return '?';
}

} // namespace

CardObjects::CardObjects() : context_(::OSSL_LIB_CTX_new()) {}

const CardToken* CardObjects::read_token() {
    std::map<std::string, std::string> settings;
    for (const auto& [name, value] : read_settings("token"))
        settings[name] = value;
    if (settings.empty()) return nullptr;
    Token& token = tokens_.emplace_back();
    token.label = settings["label"];
    token.manufacturer = settings["manufacturer"];
    token.model = settings["model"];
    token.serial = settings["serial"];
    token.second_label = settings["second_label"];
    token.out = {.label = token.label.c_str(),
                 .manufacturer = token.manufacturer.c_str(),
                 .model = token.model.c_str(),
                 .serial = token.serial.c_str(),
                 .is_initialized = settings["initialized"] == "1",
                 .is_login_required = settings["login_required"] == "1",
                 .has_pin_pad = settings["pin_pad"] == "1",
                 .is_final_try = settings["pin_final_try"] == "1",
                 .is_locked = settings["pin_locked"] == "1",
                 .second_label = token.second_label.c_str()};
    return &token.out;
}

const std::vector<CardObject>& CardObjects::list(CardKind kind) {
    lists_.emplace_back();
    for (const auto& [id, description] : read_settings("objects")) {
        std::istringstream words(description);
        std::string kinds, file, label;
        words >> kinds >> file >> std::ws;
        std::getline(words, label);
        if (kinds.find(letter_of(kind)) != std::string::npos) add(kind, id, file, label);
    }
    return lists_.back();
}

void CardObjects::add(CardKind kind, const std::string& id, const std::string& file,
                      const std::string& label) {
    Object& object = objects_.emplace_back();
    object.handle = ++last_handle_;
    object.label = label;
    object.id = bytes_of(id);
    if (kind == CardKind::certificate) {
        const BioPtr pem = open_card_file(file + ".crt");
        if (pem) object.certificate.reset(::PEM_read_bio_X509(pem.get(), nullptr, nullptr, nullptr));
    } else {
        const BioPtr pem = open_card_file(file + ".key");
        if (pem)
            object.key.reset(
                ::PEM_read_bio_PrivateKey_ex(pem.get(), nullptr, nullptr, nullptr, context_.get(), nullptr));
    }
    lists_.back().push_back({object.handle, object.label.c_str(), object.id.data(), object.id.size(),
                             object.certificate.get(), object.key.get()});
}

EVP_PKEY* CardObjects::find_private_key(unsigned long handle) const {
    for (const Object& object : objects_)
        if (object.handle == handle) return object.key.get();
    return nullptr;
}

} // namespace Kes::test
