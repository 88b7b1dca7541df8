#include "soft_token.h"

#include <fcntl.h>
#include <fstream>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

#include "support/certificates.h"

namespace Kes::test {
namespace {

namespace fs = std::filesystem;

WrappedBlock* make_block(const std::string& name) {
    const int file = ::open(name.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
    if (file < 0 || ::ftruncate(file, sizeof(WrappedBlock)) != 0)
        throw std::runtime_error("cannot create the shared block");
    void* mapped = ::mmap(nullptr, sizeof(WrappedBlock), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    ::close(file);
    if (mapped == MAP_FAILED) throw std::runtime_error("cannot map the shared block");
    return static_cast<WrappedBlock*>(mapped);
}

} // namespace

std::string softhsm_module() { return MARVO_SOFTHSM_MODULE; }

std::string pkcs11_engine() { return MARVO_PKCS11_ENGINE; }

SoftToken::SoftToken(const std::string& name) : softhsm_conf_("SOFTHSM2_CONF", dir_.file("softhsm2.conf")) {
    const fs::path prepared = fs::path(MARVO_PREPARED_TOKENS) / name;
    if (!fs::exists(prepared / "tokens"))
        throw std::runtime_error(prepared.string() + " does not exist: run the test PrepareTokens first");
    fs::copy(prepared, dir_.path(), fs::copy_options::recursive);
    std::ofstream(dir_.file("softhsm2.conf")) << "directories.tokendir = " << dir_.file("tokens")
                                              << "\nobjectstore.backend = file\nlog.level = ERROR\n";
}

Bytes SoftToken::certificate(const std::string& object) const { return read_bytes(file(object + ".der")); }

void SoftToken::remove() const {
    fs::remove_all(dir_.file("tokens"));
    fs::create_directory(dir_.file("tokens"));
}

WrappedModule::WrappedModule()
    : block_variable_(wrapped_block_variable, dir_.file("block")),
      module_variable_(wrapped_module_variable, softhsm_module()),
      block_(make_block(dir_.file("block"))) {}

WrappedModule::~WrappedModule() { ::munmap(block_, sizeof(WrappedBlock)); }

std::string WrappedModule::path() { return MARVO_WRAPPED_MODULE; }

std::vector<std::uint64_t> WrappedModule::all_calls() const {
    return {block_->calls.begin(), block_->calls.end()};
}

} // namespace Kes::test
