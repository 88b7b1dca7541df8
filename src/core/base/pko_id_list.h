#ifndef KES_BASE_PKO_ID_LIST_H_
#define KES_BASE_PKO_ID_LIST_H_

#include <cstdint>
#include <memory>
#include <ostream>
#include <string>
#include <unordered_map>
#include <vector>

#include "utils/cert_key_usage.h"
#include "utils/pin.h"

namespace Kes {

/// The kinds of public-key objects.
enum class PkoType : std::uint32_t { private_key = 0, public_key = 1, certificate = 2 };

/// Returns "private_key", "public_key" or "certificate", and "unknown" for any other value.
std::string pko_type_name(PkoType type);

/// A public-key-object identifier (PkoId): the record of a private key, a public key or a certificate that a
/// scan found. A record never changes.
struct PkoId {
    const PkoType type;
    const std::uint32_t key_type;                        ///< capi: the key specification; otherwise 0
    const std::string name;                              ///< the engine loads the object by this name
    const std::string cluster_name;                      ///< the same for all objects of one key pair
    const std::string display_name;                      ///< for users
    const std::unique_ptr<const CertKeyUsage> key_usage; ///< of a certificate; null if unknown
};

/// Writes the record as text, with a newline at the end.
std::ostream& operator<<(std::ostream& out, const PkoId& pko_id);

class KeyObserver;
class PkoIdList;

/// Finds the objects of one back-end and adds them to a list.
class PkoIdScanner {
public:
    /// @param filter  selects the keys to offer; null means every key
    explicit PkoIdScanner(std::unique_ptr<CertKeyUsageFilter> filter);
    virtual ~PkoIdScanner();
    PkoIdScanner(const PkoIdScanner&) = delete;
    PkoIdScanner& operator=(const PkoIdScanner&) = delete;

    /// Adds a record to the list for each object that is found. After a failure, the list keeps the records
    /// added so far. @throws Error null_pointer if no list is set, and other errors of the subclass
    virtual void scan(const Pin& pin) = 0;

    /// Sets the list that scan() fills.
    /// @param list_in  borrowed; must exist during scan()
    void set_list(PkoIdList* list_in) noexcept { list = list_in; }

    /// Sets an observer of the keys that scan() finds. The library itself has none.
    /// @param observer_in  borrowed; must exist during scan(); null for none
    void set_observer(KeyObserver* observer_in) noexcept { observer = observer_in; }

    /// Makes scan() find only what is visible without a login. Otherwise it logs in if the card requires it.
    void skip_login() noexcept { is_login_skipped = true; }

protected:
    const std::unique_ptr<CertKeyUsageFilter> key_usage_filter;
    PkoIdList* list = nullptr;
    KeyObserver* observer = nullptr;
    bool is_login_skipped = false;
};

/// Owns a scanner and the records of its last scan, in the order in which they were added. A record is valid
/// until the next scan(), until clear(), or until the list is destroyed.
class PkoIdList {
public:
    /// @param scanner_in  may be null, as for the manager, which registers scanners later; otherwise the
    ///                    constructor scans at once
    /// @throws ErrorBase if the scan fails
    explicit PkoIdList(std::unique_ptr<PkoIdScanner> scanner_in = nullptr, const Pin& pin = Pin());

    /// Deletes all records and scans again.
    /// @throws Error not_registered if no scanner is registered; the records then stay. Errors of the scanner
    virtual void scan(const Pin& pin);

    virtual ~PkoIdList();
    PkoIdList(const PkoIdList&) = delete;
    PkoIdList& operator=(const PkoIdList&) = delete;

    /// Creates a record without adding it to the list.
    virtual std::unique_ptr<PkoId> create_pko_id(PkoType type, std::uint32_t key_type,
                                                 const std::string& name, const std::string& cluster_name,
                                                 const std::string& display_name,
                                                 std::unique_ptr<const CertKeyUsage> key_usage);

    /// Replaces the scanner; null removes it. Keeps the records.
    void register_scanner(std::unique_ptr<PkoIdScanner> scanner_in);

    /// Deletes all records. Keeps the scanner.
    void clear() noexcept;

    /// Appends a record.
    /// @return the record, borrowed
    const PkoId* add(std::unique_ptr<PkoId> record);
    const PkoId* add(PkoType type, std::uint32_t key_type, const std::string& name,
                     const std::string& cluster_name, const std::string& display_name,
                     std::unique_ptr<const CertKeyUsage> key_usage);

    /// Finds the first record of a type. All lookups return a borrowed record, or null if none matches.
    const PkoId* find_first(PkoType type) const;

    /// Finds the next record of a type after previous, which may be of another type. Returns null if previous
    /// is not in the list.
    const PkoId* find_next(PkoType type, const PkoId* previous) const;

    /// Finds the first record with these values, in constant time.
    const PkoId* find(PkoType type, std::uint32_t key_type, const std::string& cluster_name) const;

    /// Finds the first record of a type that has the key type and cluster name of other, in constant time.
    /// Returns null if other is null.
    const PkoId* find_matching(PkoType type, const PkoId* other) const;

    /// Increases whenever the records are deleted. A record borrowed in an earlier generation is invalid.
    std::uint64_t generation() const noexcept { return generation_; }

    bool is_empty() const noexcept { return ids.empty(); }

private:
    friend std::ostream& operator<<(std::ostream& out, const PkoIdList& list);

    struct Cluster {
        PkoType type;
        std::uint32_t key_type;
        std::string cluster_name;
        bool operator==(const Cluster&) const = default;
    };
    struct ClusterHash {
        std::size_t operator()(const Cluster& cluster) const noexcept;
    };

    const PkoId* first_from(std::size_t position, PkoType type) const;

    std::vector<std::unique_ptr<PkoId>> ids;
    std::unique_ptr<PkoIdScanner> scanner;
    // The indexes keep lookups fast on a token with 1000 keys.
    std::unordered_map<Cluster, const PkoId*, ClusterHash> first_of_cluster;
    std::unordered_map<const PkoId*, std::size_t> positions;
    std::uint64_t generation_ = 0;
};

/// Writes every record as text.
std::ostream& operator<<(std::ostream& out, const PkoIdList& list);

} // namespace Kes

#endif // KES_BASE_PKO_ID_LIST_H_
