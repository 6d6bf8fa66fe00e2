// Memory that the apps' sessions may hold, all together, in frames that they
// have only partly sent. A session that would take the total over the bound
// is closed, so that no app (or stranger on the socket) can make the daemon
// hold much memory for it.
#ifndef KV_ACCESSORYD_READ_BUDGET_H
#define KV_ACCESSORYD_READ_BUDGET_H

#include <cstddef>

namespace Kv {
namespace Accessory {

class ReadBudget {
public:
    explicit ReadBudget(std::size_t bound) : m_bound(bound) {}

    // A session that held `previous` bytes now holds `current`. False, with
    // nothing recorded, when that would take the total over the bound.
    bool update(std::size_t previous, std::size_t current) {
        const std::size_t total = m_held - previous + current;
        if (current > previous && total > m_bound) {
            return false;
        }
        m_held = total;
        return true;
    }

    std::size_t held() const { return m_held; }

private:
    std::size_t m_bound;
    std::size_t m_held = 0;
};

}  // namespace Accessory
}  // namespace Kv

#endif
