#include "OptionParser.h"

#include <getopt.h>
#include <kv-cli/ExecArguments.h>
#include <kv-cli/UsageError.h>

#include <cctype>

namespace Kv {
namespace Cli {

namespace {

// getopt_long's code of the option options[i]: above every character.
constexpr int kFirstOptionCode = 256;
// '-': operands come back in order as code 1; ':': a missing value is ':'.
constexpr char kShortOptions[] = "-:h";

std::vector<struct option> optionTable(const std::vector<Option>& options) {
    std::vector<struct option> table;
    table.reserve(options.size() + 1);
    for (std::size_t i = 0; i < options.size(); ++i) {
        table.push_back({options[i].name.c_str(),
                         options[i].kind == Option::WithValue ? required_argument : no_argument,
                         nullptr, kFirstOptionCode + static_cast<int>(i)});
    }
    table.push_back({nullptr, 0, nullptr, 0});
    return table;
}

bool isNegativeNumber(const char* word) {
    return word[0] == '-' && std::isdigit(static_cast<unsigned char>(word[1]));
}

// Parses one command line; getopt_long keeps its state in globals, so one
// parser runs at a time.
class Parser {
public:
    Parser(const std::vector<Option>& options, const std::vector<std::string>& words)
        : m_options(options),
          m_table(optionTable(options)),
          m_words(words),
          m_argv(execArguments(m_words)) {}

    Arguments parse() {
        ::optind = 0;  // a fresh scan
        ::opterr = 0;  // the problems are ours to tell
        for (int code; (code = next()) != -1;) {
            take(code);
        }
        m_arguments.markDashes();
        for (int i = ::optind; i < argc(); ++i) {
            m_arguments.addOperand(m_argv[static_cast<std::size_t>(i)]);
        }
        return m_arguments;
    }

private:
    int argc() const { return static_cast<int>(m_words.size()); }

    int next() {
        while (::optind > 0 && ::optind < argc() &&
               isNegativeNumber(m_argv[static_cast<std::size_t>(::optind)])) {
            m_arguments.addOperand(m_argv[static_cast<std::size_t>(::optind++)]);
        }
        return getopt_long(argc(), m_argv.data(), kShortOptions, m_table.data(), nullptr);
    }

    void take(int code) {
        if (code == 1) {
            m_arguments.addOperand(::optarg);
        } else if (code == 'h') {
            m_arguments.addOption("help", "");
        } else if (code >= kFirstOptionCode) {
            m_arguments.addOption(nameOf(code), ::optarg != nullptr ? ::optarg : "");
        } else if (code == ':') {
            throw UsageError("--" + nameOf(::optopt) + " needs a value");
        } else {
            throw UsageError(refusal());
        }
    }

    // Why getopt_long refused the word it just read.
    std::string refusal() const {
        if (::optopt >= kFirstOptionCode) {
            return "--" + nameOf(::optopt) + " takes no value";
        }
        if (::optopt != 0) {
            return "unknown option '-" + std::string(1, static_cast<char>(::optopt)) + "'";
        }
        return "unknown option '" + std::string(m_argv[static_cast<std::size_t>(::optind - 1)]) +
               "'";
    }

    const std::string& nameOf(int code) const {
        return m_options[static_cast<std::size_t>(code - kFirstOptionCode)].name;
    }

    const std::vector<Option>& m_options;
    std::vector<struct option> m_table;
    std::vector<std::string> m_words;
    std::vector<char*> m_argv;
    Arguments m_arguments;
};

}  // namespace

Arguments parseOptions(const std::vector<Option>& options, const std::vector<std::string>& words) {
    return Parser(options, words).parse();
}

}  // namespace Cli
}  // namespace Kv
