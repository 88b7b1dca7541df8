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

/// What kind of object a record stands for.
enum class PkoType : std::uint32_t { private_key = 0, public_key = 1, certificate = 2 };

/// "private_key", "public_key", "certificate"; "unknown" for any other value.
std::string pko_type_name(PkoType type);

/// One object that was discovered: a private key, a public key or a certificate. Records do not change once
/// made.
struct PkoId {
    const PkoType type;
    const std::uint32_t key_type;                        ///< capi: key specification; otherwise 0
    const std::string name;                              ///< what the engine loads the object by
    const std::string cluster_name;                      ///< the same for all objects of one key pair
    const std::string display_name;                      ///< for people
    const std::unique_ptr<const CertKeyUsage> key_usage; ///< of a certificate; may be null
};

/// Writes a record's text form, ended by a newline.
std::ostream& operator<<(std::ostream& out, const PkoId& pko_id);

class PkoIdList;

/// Fills a list with what one back-end holds.
class PkoIdScanner {
public:
    /// @param filter  which keys to offer; null lets every key pass
    explicit PkoIdScanner(std::unique_ptr<CertKeyUsageFilter> filter);
    virtual ~PkoIdScanner();
    PkoIdScanner(const PkoIdScanner&) = delete;
    PkoIdScanner& operator=(const PkoIdScanner&) = delete;

    /// Adds a record for each object found to the list. Records added before a failure stay.
    /// @throws Error null_pointer when no list is set, and what the back-end reports
    virtual void scan(const Pin& pin) = 0;

    /// @param list_in  the list to fill; must live as long as this scanner scans
    void set_list(PkoIdList* list_in) noexcept { list = list_in; }

protected:
    const std::unique_ptr<CertKeyUsageFilter> key_usage_filter;
    PkoIdList* list = nullptr;
};

/// Owns the records of the last scan, in the order in which they were added, and the scanner that makes them.
/// A record is valid until the next scan or until the list ends.
class PkoIdList {
public:
    /// @param scanner_in  may be null; otherwise it scans at once
    explicit PkoIdList(std::unique_ptr<PkoIdScanner> scanner_in = nullptr, const Pin& pin = Pin());

    /// Deletes all records and scans anew.
    /// @throws Error not_registered without a scanner (the records stay), and what the scanner throws
    virtual void scan(const Pin& pin);

    virtual ~PkoIdList();
    PkoIdList(const PkoIdList&) = delete;
    PkoIdList& operator=(const PkoIdList&) = delete;

    /// Makes a record; does not add it.
    virtual std::unique_ptr<PkoId> create_pko_id(PkoType type, std::uint32_t key_type,
                                                 const std::string& name, const std::string& cluster_name,
                                                 const std::string& display_name,
                                                 std::unique_ptr<const CertKeyUsage> key_usage);

    /// Replaces the scanner.
    void register_scanner(std::unique_ptr<PkoIdScanner> scanner_in);

    /// Deletes all records; the scanner stays.
    void clear() noexcept;

    /// Appends a record. @return the record, lent
    const PkoId* add(std::unique_ptr<PkoId> record);
    const PkoId* add(PkoType type, std::uint32_t key_type, const std::string& name,
                     const std::string& cluster_name, const std::string& display_name,
                     std::unique_ptr<const CertKeyUsage> key_usage);

    /// The lookups lend a record or give null. Each costs the same however long the list is, but for
    /// find_next(), which looks at the records up to the next one of the type.
    const PkoId* find_first(PkoType type) const;

    /// The record of that type that follows previous, which may be of another type; null if previous is not
    /// here.
    const PkoId* find_next(PkoType type, const PkoId* previous) const;

    const PkoId* find(PkoType type, std::uint32_t key_type, const std::string& cluster_name) const;

    /// The record of that type in the cluster of other.
    const PkoId* find_matching(PkoType type, const PkoId* other) const;

    /// Grows whenever records are deleted: a record that was lent in an earlier generation is not valid.
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
    std::unordered_map<Cluster, const PkoId*, ClusterHash>
        first_of_cluster_; // a token of 1000 keys stays quick
    std::unordered_map<const PkoId*, std::size_t> positions_;
    std::uint64_t generation_ = 0;
};

/// Writes every record's text form.
std::ostream& operator<<(std::ostream& out, const PkoIdList& list);

} // namespace Kes

#endif // KES_BASE_PKO_ID_LIST_H_
