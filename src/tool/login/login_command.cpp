#include <algorithm>
#include <iostream>
#include <memory>
#include <sstream>
#include <stdexcept>

#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>
#include <openssl/ssl.h>

#include "tool/commands.h"
#include "tool/decimal_number.h"
#include "tool/json_parts.h"
#include "tool/login/login_fit.h"
#include "tool/login/tls_alert.h"
#include "tool/login/tls_login.h"
#include "tool/option_checks.h"
#include "tool/printable.h"
#include "tool/selected_key.h"

namespace Kes::tool {
namespace {

struct LoginOptions {
    KeyOption key;
    LoginTarget target;
    std::string address; ///< HOST:PORT
    std::string version; ///< of TLS
};

/// Splits HOST:PORT; an IPv6 address needs brackets.
/// @return an empty host if the text has another form
std::pair<std::string, std::string> split_address(const std::string& text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0 || colon + 1 == text.size()) return {};
    std::string host = text.substr(0, colon);
    const bool is_bracketed = host.front() == '[' && host.back() == ']' && host.size() > 2;
    if (is_bracketed) host = host.substr(1, host.size() - 2);
    if (!is_bracketed && host.find(':') != std::string::npos) return {};
    return {host, text.substr(colon + 1)};
}

// The error does not repeat the text, which may be a PIN that the user gave as an argument.
std::string check_address(const std::string& text) {
    const auto [host, port] = split_address(text);
    if (host.empty()) return "the address is not of the form HOST:PORT";
    const int number = decimal_number(port);
    return number >= 1 && number <= 65535 ? "" : "the port is not a number from 1 to 65535";
}

/// The result of a login in words.
struct Verdict {
    bool is_success;
    std::string text;
};

/// Whether the answer is an HTTP status with which servers refuse a client certificate. nginx and others finish
/// the handshake first.
bool is_refusal(const std::string& answer) {
    constexpr std::size_t status_offset = sizeof "HTTP/1.1 " - 1;
    if (!answer.starts_with("HTTP/1.") || answer.size() < status_offset + 3) return false;
    const std::string status = answer.substr(status_offset, 3);
    return status == "400" || status == "401" || status == "403";
}

Verdict judge(const LoginReport& report) {
    if (!report.error.empty()) return {false, "failed: " + report.error};
    if (!report.request)
        return {false, "no login: the server did not ask for a certificate, so the key was not used"};
    if (report.signature.empty())
        return {false, "no login: no certificate was sent, because the key does not fit"};
    if (report.protocol >= TLS1_3_VERSION && report.answer.empty())
        return {false,
                "unknown: the server sent no answer, which would show whether it accepts the certificate"};
    if (is_refusal(report.answer))
        return {false, "refused: the handshake succeeded, but the server answered with " +
                           printable(report.answer.substr(0, report.answer.find_first_of("\r\n")), 80)};
    return {true, "succeeded"};
}

/// The first lines of the answer, safe to print.
std::vector<std::string> first_lines(const std::string& answer) {
    constexpr std::size_t most_lines = 12;
    constexpr std::size_t longest_line = 120;
    std::vector<std::string> lines;
    std::istringstream text(answer);
    for (std::string line; lines.size() < most_lines && std::getline(text, line);) {
        if (!line.empty() && line.back() == '\r') line.pop_back();
        lines.push_back(printable(line, longest_line));
    }
    return lines;
}

/// What both forms of the output show.
struct LoginResult {
    const LoginTarget& target;
    const SelectedKey& key;
    const LoginReport& report;
    std::vector<CodedText> misfits;
    Verdict verdict;
};

std::vector<std::string> names_of_algorithms(const CertificateRequest& request) {
    std::vector<std::string> names;
    for (const std::uint16_t number : request.algorithms)
        names.push_back(name_of_algorithm(number));
    return names;
}

void print_request(const LoginResult& result) {
    if (!result.report.request) {
        if (!result.report.protocol_name.empty()) std::cout << "certificate: not requested by the server\n";
        return;
    }
    const CertificateRequest& request = *result.report.request;
    std::cout << "certificate: requested by the server\nauthorities: ";
    if (request.authorities.empty()) std::cout << "the server names none\n";
    for (std::size_t i = 0; i < request.authorities.size(); ++i)
        std::cout << (i == 0 ? "" : "             ") << printable(request.authorities[i], 200) << '\n';
    std::cout << "algorithms: ";
    const char* separator = "";
    for (const std::string& name : names_of_algorithms(request)) {
        std::cout << separator << name;
        separator = ", ";
    }
    std::cout << '\n';
    if (result.misfits.empty()) std::cout << "fit: this key and its certificate fit\n";
    for (const CodedText& misfit : result.misfits)
        std::cout << "misfit: " << misfit.text << '\n';
}

AlertExplanation explain(const LoginReport& report) {
    return report.alert->is_received ? explain_alert(report.alert->number)
                                     : explain_sent_alert(report.alert->number, report.server_check);
}

void print_alert(const LoginReport& report) {
    if (!report.alert) return;
    const AlertExplanation alert = explain(report);
    std::cout << "alert: " << alert.name << (report.alert->is_received ? " from" : " sent to")
              << " the server: " << alert.meaning << "\nremedy: " << alert.remedy << '\n';
}

void print_text(const LoginResult& result) {
    const LoginReport& report = result.report;
    std::cout << "server: " << result.target.address() << "\nkey: " << printable(result.key.name(), 200)
              << " (" << result.key.type() << ")\n";
    if (!report.protocol_name.empty())
        std::cout << "protocol: " << report.protocol_name << "\ncipher: " << report.cipher << '\n';
    if (!report.signature.empty()) std::cout << "signature: " << report.signature << '\n';
    print_request(result);
    print_alert(report);
    if (!report.answer.empty()) std::cout << "answer:\n";
    for (const std::string& line : first_lines(report.answer))
        std::cout << "  " << line << '\n';
    std::cout << "login: " << result.verdict.text << std::endl;
}

Json alert_json(const LoginReport& report) {
    if (!report.alert) return nullptr;
    const AlertExplanation alert = explain(report);
    return {{"number", report.alert->number},
            {"name", alert.name},
            {"from_server", report.alert->is_received},
            {"meaning", alert.meaning},
            {"remedy", alert.remedy}};
}

Json request_json(const LoginReport& report) {
    if (!report.request) return nullptr;
    return {{"authorities", report.request->authorities},
            {"names_issuer", report.request->names_issuer},
            {"algorithms", names_of_algorithms(*report.request)}};
}

void print_as_json(const Command& command, const LoginResult& result) {
    const LoginReport& report = result.report;
    print_json(command, {{"success", result.verdict.is_success},
                         {"verdict", result.verdict.text},
                         {"host", result.target.host},
                         {"port", result.target.port},
                         {"key", key_json(result.key)},
                         {"protocol", report.protocol_name},
                         {"cipher", report.cipher},
                         {"signature", report.signature},
                         {"request", request_json(report)},
                         {"misfits", coded_json(result.misfits)},
                         {"alert", alert_json(report)},
                         {"answer", first_lines(report.answer)}});
}

ExitStatus log_in_and_report(const Command& command, LoginOptions& options) {
    LoginTarget& target = options.target;
    std::tie(target.host, target.port) = split_address(options.address);
    if (target.server_name.empty()) target.server_name = target.host;
    if (!options.version.empty())
        target.protocol = options.version == "1.2" ? TLS1_2_VERSION : TLS1_3_VERSION;
    if (!target.ca_file.empty()) check_authorities(target.ca_file);
    const SelectedKey key(command, options.key.id());
    if (key.uses_cryptoapi() && target.protocol == TLS1_3_VERSION)
        throw std::runtime_error(
            "keys of CryptoAPI log in with TLS 1.2 only, because they sign with PKCS#1 v1.5");
    const LoginReport report = log_in({key.key(), key.certificate(), key.uses_cryptoapi()}, target);
    LoginResult result{target, key, report, {}, judge(report)};
    if (report.request)
        result.misfits =
            find_misfits(report, abilities_of(key.key(), key.uses_cryptoapi()), key.certificate());
    if (command.as_json)
        print_as_json(command, result);
    else
        print_text(result);
    return result.verdict.is_success ? ExitStatus::success : ExitStatus::failure;
}

} // namespace

void create_login_command(CLI::App& program, Command& command) {
    command.name = "login";
    CLI::App* app = command.add_to(program, "Log in to a TLS server with a key, and say why it fails");
    const auto options = std::make_shared<LoginOptions>();
    app->add_option("server", options->address, "The server's name or address, and its port")
        ->type_name("HOST:PORT")
        ->required()
        ->check(CLI::Validator(check_address, ""));
    options->key.add_to(*app);
    command.pin.add_to(*app);
    command.pin.add_final_try_to(*app);
    CLI::Option* ca_file =
        app->add_option("--ca", options->target.ca_file,
                        "The authorities that may sign the server's certificate, PEM (default: OpenSSL's)");
    ca_file->type_name("FILE")->check(is_existing_file());
    app->add_flag("--insecure", options->target.is_insecure, "Do not check the server's certificate")
        ->excludes(ca_file);
    app->add_option("--sni", options->target.server_name,
                    "The server's name in the handshake and in its certificate (default: HOST)")
        ->type_name("NAME");
    app->add_option("--tls", options->version, "Only this version of TLS")
        ->type_name("VERSION")
        ->check(is_one_of({"1.2", "1.3"}));
    app->add_option("--timeout", options->target.timeout,
                    "How long to wait for each of connection, handshake and answer, 1 to 3600 (default: 10)")
        ->type_name("SECONDS")
        ->check(is_number(1, 3600));
    command.action = [&command, options] { return log_in_and_report(command, *options); };
}

} // namespace Kes::tool
