#include "windows_capi.h"

#include "support/handle_balance.h"
#include "support/process.h"

namespace Kes::test {
namespace {

void change_store(const std::string& change, const std::string& card, const std::string& kind) {
    run_program({MARVO_PREPARE_CARD, change, MARVO_PROGRAMS, "MY", card, "login", kind});
}

} // namespace

WindowsCapiTest::WindowsCapiTest() { run_program({SOFT_TOKEN_PROGRAM, "server", dir_.path().string()}); }

void WindowsCapiTest::TearDown() { EXPECT_EQ(unbalanced_handles(split_lines(calls())), Lines()) << calls(); }

void WindowsCapiTest::add_key_to_card(const std::string& kind, const std::string& name) const {
    run_program(
        {MARVO_PREPARE_CARD, "key", card(), "login", kind, dir_.path().string(), "/O=Makers/CN=" + name});
}

std::vector<std::string> WindowsCapiTest::command(const std::string& program,
                                                  const std::vector<std::string>& arguments) {
    return windows_command(MARVO_PROGRAMS, program, arguments);
}

std::string WindowsCapiTest::with_unix_lines(std::string text) {
    std::erase(text, '\r');
    return text;
}

int WindowsCapiTest::run_client(const std::string& program, const std::vector<std::string>& arguments) {
    const Outcome outcome = run_with_input(command(program, arguments), "");
    output_ = with_unix_lines(outcome.output);
    return outcome.status;
}

int WindowsCapiTest::log_in(const Server& server, const std::string& key_name) {
    EXPECT_EQ(run_client("tls_client", {}), 0) << output_;
    keys_ = output_;
    std::string number = "none";
    for (const std::string& line : split_lines(keys_)) // "key 1: NAME"
        if (line.ends_with(": " + key_name)) number = line.substr(4, line.find(':') - 4);
    return run_client("tls_client", {number, "127.0.0.1", std::to_string(server.port()), "1.2"});
}

long WindowsCapiTest::count_signatures() const {
    long count = 0;
    for (const std::string& line : split_lines(calls()))
        if (line.starts_with("sign@")) ++count;
    return count;
}

MyStore::~MyStore() {
    try {
        clear();
    } catch (const std::exception& error) {
        ADD_FAILURE() << error.what();
    }
}

void MyStore::add_card_key(const std::string& card, const std::string& kind) const {
    change_store("store-card", card, kind);
}

void MyStore::add_software_key(const std::string& card, const std::string& kind) const {
    change_store("store-software", card, kind);
}

void MyStore::clear() { run_program({MARVO_PREPARE_CARD, "clear", MARVO_PROGRAMS, "MY"}); }

} // namespace Kes::test
