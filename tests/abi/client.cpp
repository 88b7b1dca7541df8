// A client as others write it: built by several compilers, at several levels of optimisation and language.
// What it makes it ends, once in each of the ways there are; a memory checker watches.
#include "marvo/ossl_scard_cfg.h"
#include "marvo/ossl_scard_if.h"

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

const char* const long_text = "a text too long to be kept inside of the object itself";

int failures = 0;

void check(bool condition, const char* what) {
    if (condition) return;
    std::fprintf(stderr, "failed: %s\n", what);
    ++failures;
}

Kes::OsslScardCfg* make_clone(const Kes::OsslScardCfg* cfg) {
    Kes::OsslScardCfg* const clone = cfg->clone();
    check(std::strcmp(clone->get_logfile(), long_text) == 0, "a clone has the text");
    clone->set_logfile("another text, and just as long, for the clone alone");
    check(std::strcmp(cfg->get_logfile(), long_text) == 0, "the original keeps its text");
    return clone;
}

void end_clones_in_every_way(const Kes::OsslScardCfg* cfg) {
    delete make_clone(cfg);
    delete cfg->clone();
    make_clone(cfg)->release();
    const Kes::OsslScardCfg* const constant = make_clone(cfg);
    delete constant;
    const std::unique_ptr<Kes::OsslScardCfg> owned(make_clone(cfg));
    Kes::OsslScardCfg* const none = nullptr;
    delete none;
}

void call_both_overloads(Kes::OsslScardIf* library) {
    check(library->set_key(0, "%01") == 1, "an unknown key is refused");
    check(std::strstr(library->get_last_error_msg(), "specified key not found") != nullptr,
          "by its identifier");
    check(library->set_key(6) == 1, "an unknown number is refused");
    check(std::strstr(library->get_last_error_msg(), "invalid key_num (6)") != nullptr, "by its number");
}

} // namespace

int main() {
    for (int round = 0; round < 3; ++round) {
        Kes::OsslScardIf* const library = get_ossl_scard_if();
        check(library->version_check(4) == 0, "the versions agree");
        Kes::OsslScardCfg* const cfg = library->get_config_default();
        cfg->set_logfile(long_text);
        end_clones_in_every_way(cfg);
        call_both_overloads(library);
        Kes::OsslScardCfg* const survivor = make_clone(cfg);
        library->destroy();
        delete survivor;
    }
    return failures == 0 ? 0 : 1;
}
