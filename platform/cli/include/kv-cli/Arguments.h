// What a command line gave: its operands, in order, and its options with
// their values. The operands after "--" are kept apart as well, for the
// programs that pass them on (a command to run, an app's arguments).
#ifndef KV_CLI_ARGUMENTS_H
#define KV_CLI_ARGUMENTS_H

#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Kv {
namespace Cli {

class Arguments {
public:
    void addOperand(std::string operand) { m_operands.push_back(std::move(operand)); }
    // The operands that follow start here: "--" stood before them.
    void markDashes() { m_dashes = m_operands.size(); }
    void addOption(std::string name, std::string value);

    // Every operand, those after "--" included.
    const std::vector<std::string>& operands() const { return m_operands; }
    std::vector<std::string> operandsBeforeDashes() const;
    std::vector<std::string> operandsAfterDashes() const;

    bool has(const std::string& option) const;
    // The value given last to the option.
    std::optional<std::string> value(const std::string& option) const;
    // Every value given to the option, in order.
    std::vector<std::string> values(const std::string& option) const;

    // Throws UsageError when an option other than `allowed` (and --help,
    // --version) was given: "--json does not go with start".
    void allowOnly(const std::string& command, const std::set<std::string>& allowed) const;
    // Throws UsageError when more than `count` operands were given, naming
    // the first one too many.
    void allowOperands(std::size_t count) const;
    // Throws UsageError when both options were given: "give one of --listen
    // and --connect".
    void allowOneOf(const std::string& first, const std::string& second) const;

private:
    std::vector<std::string> m_operands;
    std::size_t m_dashes = std::string::npos;
    std::vector<std::pair<std::string, std::string>> m_options;
};

}  // namespace Cli
}  // namespace Kv

#endif
