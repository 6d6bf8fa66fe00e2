#include <kv-cli/Arguments.h>
#include <kv-cli/UsageError.h>

#include <algorithm>

namespace Kv {
namespace Cli {

void Arguments::addOption(std::string name, std::string value) {
    m_options.emplace_back(std::move(name), std::move(value));
}

std::vector<std::string> Arguments::operandsBeforeDashes() const {
    const std::size_t end = std::min(m_dashes, m_operands.size());
    return {m_operands.begin(), m_operands.begin() + static_cast<std::ptrdiff_t>(end)};
}

std::vector<std::string> Arguments::operandsAfterDashes() const {
    const std::size_t start = std::min(m_dashes, m_operands.size());
    return {m_operands.begin() + static_cast<std::ptrdiff_t>(start), m_operands.end()};
}

bool Arguments::has(const std::string& option) const { return value(option).has_value(); }

std::optional<std::string> Arguments::value(const std::string& option) const {
    const std::vector<std::string> given = values(option);
    return given.empty() ? std::nullopt : std::optional<std::string>(given.back());
}

std::vector<std::string> Arguments::values(const std::string& option) const {
    std::vector<std::string> given;
    for (const auto& [name, value] : m_options) {
        if (name == option) {
            given.push_back(value);
        }
    }
    return given;
}

void Arguments::allowOnly(const std::string& command, const std::set<std::string>& allowed) const {
    const auto refused = std::find_if(m_options.begin(), m_options.end(), [&](const auto& option) {
        return !allowed.count(option.first) && option.first != "help" && option.first != "version";
    });
    if (refused != m_options.end()) {
        throw UsageError("--" + refused->first + " does not go with " + command);
    }
}

void Arguments::allowOperands(std::size_t count) const {
    if (m_operands.size() > count) {
        throw UsageError("unexpected argument '" + m_operands[count] + "'");
    }
}

void Arguments::allowOneOf(const std::string& first, const std::string& second) const {
    if (has(first) && has(second)) {
        throw UsageError("give one of --" + first + " and --" + second);
    }
}

}  // namespace Cli
}  // namespace Kv
