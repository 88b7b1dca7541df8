#include "base/pko_id_list.h"

#include <functional>
#include <utility>

#include "utils/error.h"
#include "utils/logger.h"

namespace Kes {

std::string pko_type_name(PkoType type) {
    switch (type) {
    case PkoType::private_key:
        return "private_key";
    case PkoType::public_key:
        return "public_key";
    case PkoType::certificate:
        return "certificate";
    }
    return "unknown";
}

std::ostream& operator<<(std::ostream& out, const PkoId& pko_id) {
    return out << pko_id.display_name << " [type=" << pko_type_name(pko_id.type)
               << ", key_type=" << pko_id.key_type << ", name=" << pko_id.name
               << ", cluster_name=" << pko_id.cluster_name << "]\n";
}

std::ostream& operator<<(std::ostream& out, const PkoIdList& list) {
    for (const auto& id : list.ids)
        out << *id;
    return out;
}

PkoIdScanner::PkoIdScanner(std::unique_ptr<CertKeyUsageFilter> filter)
    : key_usage_filter(filter
                           ? std::move(filter)
                           : std::make_unique<CertKeyUsageFilter>(FilterType::all, 0, FilterType::all, "")) {
    log_trace("created PkoIdScanner object");
}

PkoIdScanner::~PkoIdScanner() { log_trace("destroyed PkoIdScanner object"); }

PkoIdList::PkoIdList(std::unique_ptr<PkoIdScanner> scanner_in, const Pin& pin)
    : scanner(std::move(scanner_in)) {
    if (scanner) {
        try {
            scanner->set_list(this);
            scanner->scan(pin);
        } catch (const ErrorBase& error) {
            // Destroy the scanner before the error propagates. Whatever the back-end has thrown, callers
            // receive the common base class.
            scanner.reset();
            throw ErrorBase(error);
        }
    }
    log_trace("created PkoIdList object");
}

PkoIdList::~PkoIdList() {
    clear();
    scanner.reset();
    log_trace("destroyed PkoIdList object");
}

void PkoIdList::scan(const Pin& pin) {
    if (!scanner)
        throw Error(ErrorCodeType::not_registered, "no scanner registered",
                    "pko_id_list:86 Kes::PkoIdList::scan()");
    clear();
    scanner->set_list(this);
    scanner->scan(pin);
}

std::unique_ptr<PkoId> PkoIdList::create_pko_id(PkoType type, std::uint32_t key_type, const std::string& name,
                                                const std::string& cluster_name,
                                                const std::string& display_name,
                                                std::unique_ptr<const CertKeyUsage> key_usage) {
    return std::unique_ptr<PkoId>(
        new PkoId{type, key_type, name, cluster_name, display_name, std::move(key_usage)});
}

void PkoIdList::register_scanner(std::unique_ptr<PkoIdScanner> scanner_in) {
    scanner = std::move(scanner_in);
}

void PkoIdList::clear() noexcept {
    first_of_cluster.clear();
    positions.clear();
    ids.clear();
    ++generation_;
}

const PkoId* PkoIdList::add(std::unique_ptr<PkoId> record) {
    const PkoId* added = record.get();
    ids.push_back(std::move(record));
    positions.emplace(added, ids.size() - 1);
    // try_emplace() keeps the earlier entry: find() returns the first of several objects with one id.
    first_of_cluster.try_emplace({added->type, added->key_type, added->cluster_name}, added);
    return added;
}

const PkoId* PkoIdList::add(PkoType type, std::uint32_t key_type, const std::string& name,
                            const std::string& cluster_name, const std::string& display_name,
                            std::unique_ptr<const CertKeyUsage> key_usage) {
    return add(create_pko_id(type, key_type, name, cluster_name, display_name, std::move(key_usage)));
}

const PkoId* PkoIdList::find_first(PkoType type) const { return first_from(0, type); }

const PkoId* PkoIdList::find_next(PkoType type, const PkoId* previous) const {
    const auto position = positions.find(previous);
    return position == positions.end() ? nullptr : first_from(position->second + 1, type);
}

const PkoId* PkoIdList::find(PkoType type, std::uint32_t key_type, const std::string& cluster_name) const {
    const auto first = first_of_cluster.find({type, key_type, cluster_name});
    return first == first_of_cluster.end() ? nullptr : first->second;
}

const PkoId* PkoIdList::find_matching(PkoType type, const PkoId* other) const {
    return other == nullptr ? nullptr : find(type, other->key_type, other->cluster_name);
}

const PkoId* PkoIdList::first_from(std::size_t position, PkoType type) const {
    for (; position < ids.size(); ++position)
        if (ids[position]->type == type) return ids[position].get();
    return nullptr;
}

std::size_t PkoIdList::ClusterHash::operator()(const Cluster& cluster) const noexcept {
    const auto kind = static_cast<std::size_t>(cluster.type) * 31U + cluster.key_type;
    return std::hash<std::string>()(cluster.cluster_name) ^ (kind * 0x9e3779b97f4a7c15U);
}

} // namespace Kes
