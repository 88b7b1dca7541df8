// Deletes clones in every possible way.
#include "client.h"

namespace {

const char* const long_text = "a text too long to be kept inside of the object itself";

/// Deletes like a client's smart pointer.
class Owner {
public:
    explicit Owner(Kes::OsslScardCfg* cfg) : cfg_(cfg) {}
    ~Owner() { delete cfg_; }
    Owner(const Owner&) = delete;
    Owner& operator=(const Owner&) = delete;

private:
    Kes::OsslScardCfg* cfg_;
};

Kes::OsslScardCfg* make_clone(const Kes::OsslScardCfg* cfg) {
    Kes::OsslScardCfg* const clone = cfg->clone();
    CHECK(clone != nullptr && clone != cfg);
    CHECK_TEXT(long_text, clone->get_logfile());
    clone->set_logfile("another text, and just as long, for the clone alone");
    CHECK_TEXT(long_text, cfg->get_logfile());
    return clone;
}

void delete_in_each_way(const Kes::OsslScardCfg* cfg) {
    delete make_clone(cfg);
    delete cfg->clone();
    make_clone(cfg)->release();
    const Kes::OsslScardCfg* const constant = make_clone(cfg);
    delete constant;
    const Owner owner(make_clone(cfg));
    Kes::OsslScardCfg* const none = nullptr;
    delete none;
}

} // namespace

void delete_clones_in_every_way() {
    Kes::OsslScardIf* const library = get_ossl_scard_if();
    Kes::OsslScardCfg* const cfg = library->get_config_default();
    cfg->set_logfile(long_text);
    delete_in_each_way(cfg);
    Kes::OsslScardCfg* const survivor = make_clone(cfg);
    library->destroy();
    CHECK_TEXT("another text, and just as long, for the clone alone", survivor->get_logfile());
    delete survivor;
}
