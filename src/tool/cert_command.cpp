#include <ctime>
#include <memory>
#include <stdexcept>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <openssl/pem.h>

#include "tool/binary_output.h"
#include "tool/commands.h"
#include "tool/json_parts.h"
#include "tool/option_checks.h"
#include "tool/output_file.h"
#include "tool/selected_key.h"
#include "utils/ossl_ptr.h"

namespace Kes::tool {
namespace {

struct CertOptions {
    KeyOption key;
    std::string file;
    std::string format = "pem";
    bool may_overwrite = false;
};

std::string encode(X509* certificate, bool as_der) {
    const BioPtr bytes(::BIO_new(::BIO_s_mem()));
    const int result =
        as_der ? ::i2d_X509_bio(bytes.get(), certificate) : ::PEM_write_bio_X509(bytes.get(), certificate);
    if (result != 1) throw std::runtime_error("OpenSSL cannot encode the certificate");
    const char* first = nullptr;
    const long length = ::BIO_get_mem_data(bytes.get(), &first);
    return {first, static_cast<std::size_t>(length)};
}

ExitStatus print_certificate(const Command& command, const CertOptions& options) {
    if (!options.file.empty()) check_file(options.file, options.may_overwrite);
    const SelectedKey key(command, options.key.id());
    const std::string bytes = encode(key.certificate(), options.format == "der");
    if (!options.file.empty()) write_file(options.file, bytes, options.may_overwrite);
    if (command.as_json) {
        const CertificateFacts facts =
            read_facts(key.certificate(), CertKeyUsage(key.certificate()), std::time(nullptr));
        print_json(command, {{"key", key_json(key)},
                             {"certificate", certificate_json(facts)},
                             {"pem", encode(key.certificate(), false)},
                             {"file", options.file}});
    } else if (options.file.empty()) {
        print_bytes(bytes);
    }
    return ExitStatus::success;
}

} // namespace

void create_cert_command(CLI::App& program, Command& command) {
    command.name = "cert";
    CLI::App* app = command.add_to(program, "Print or save the certificate of a key");
    const auto options = std::make_shared<CertOptions>();
    options->key.add_to(*app);
    command.pin.add_to(*app);
    command.pin.add_final_try_to(*app);
    app->add_option("--out", options->file, "Save the certificate in this file")->type_name("FILE");
    app->add_option("--format", options->format, "pem or der (default: pem)")
        ->type_name("FORMAT")
        ->check(is_one_of({"pem", "der"}));
    app->add_flag("--force", options->may_overwrite, "Overwrite an existing file");
    command.action = [&command, options] { return print_certificate(command, *options); };
}

} // namespace Kes::tool
