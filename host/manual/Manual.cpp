#include "manual/Manual.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>
#include <sstream>

namespace talrtp::host {

namespace {

// Text that groff prints as it stands: no line is taken for a request, no character for an escape.
std::string escape(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const bool isLineStart = i == 0 || text[i - 1] == '\n';
        if (isLineStart && (text[i] == '.' || text[i] == '\'')) {
            result += "\\&";
        }
        result += text[i] == '\\' ? "\\e" : text[i] == '-' ? "\\-" : std::string(1, text[i]);
    }
    return result;
}

std::vector<std::string> paragraphsOf(const std::string& text) {
    std::vector<std::string> paragraphs(1);
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty()) {
            paragraphs.back() += line + "\n";
        } else if (!paragraphs.back().empty()) {
            paragraphs.emplace_back();
        }
    }
    if (paragraphs.back().empty()) {
        paragraphs.pop_back();
    }
    return paragraphs;
}

std::string upper(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(), [](unsigned char c) { return std::toupper(c); });
    return text;
}

// The first paragraph of a description is one sentence: what the command is for.
std::string purposeOf(const CLI::App& command) {
    std::string purpose = paragraphsOf(command.get_description()).front();
    purpose.erase(purpose.find_last_not_of(".\n") + 1);
    return purpose;
}

std::string commandLineOf(const CLI::App& command) {
    return command.get_parent() == nullptr ? command.get_name()
                                           : command.get_parent()->get_name() + " " + command.get_name();
}

std::vector<const CLI::Option*> positionalsOf(const CLI::App& command) {
    std::vector<const CLI::Option*> result = command.get_options();
    result.erase(std::remove_if(result.begin(), result.end(),
                                [](const CLI::Option* each) { return !each->get_positional(); }),
                 result.end());
    return result;
}

std::string synopsisOf(const CLI::App& command) {
    std::string line = fmt::format(".B {}\n[\\fIOPTION\\fR]...", escape(commandLineOf(command)));
    for (const CLI::Option* each : positionalsOf(command)) {
        const std::string name = escape(each->get_name(true));
        line += each->get_required() ? fmt::format(" \\fI{}\\fR", name) : fmt::format(" [\\fI{}\\fR]", name);
    }
    for (const CLI::Option* each : command.get_options()) {
        if (each->get_required() && !each->get_positional()) {
            line +=
                fmt::format(R"( \fB{}\fR \fI{}\fR)", escape(each->get_name()), escape(each->get_type_name()));
        }
    }
    return line + (command.get_subcommands({}).empty() ? "\n" : " \\fICOMMAND\\fR ...\n");
}

std::string namesOf(const CLI::Option& option) {
    std::string names;
    for (const std::string& each : option.get_snames()) {
        names += fmt::format(R"({}\fB\-{}\fR)", names.empty() ? "" : ", ", escape(each));
    }
    for (const std::string& each : option.get_lnames()) {
        names += fmt::format(R"({}\fB\-\-{}\fR)", names.empty() ? "" : ", ", escape(each));
    }
    return names;
}

std::string describeOption(const CLI::Option& option) {
    std::string text = ".TP\n" + namesOf(option);
    if (option.get_type_size() > 0 && !option.get_type_name().empty()) {
        text += fmt::format(" \\fI{}\\fR", escape(option.get_type_name()));
    }
    text += "\n" + escape(option.get_description()) + ".\n";
    if (!option.get_default_str().empty()) {
        text += fmt::format("The default is {}.\n", escape(option.get_default_str()));
    }
    return text;
}

std::string describeOptions(const CLI::App& command) {
    std::string text = ".SH OPTIONS\n";
    for (const std::string& group : command.get_groups()) {
        std::string entries;
        for (const CLI::Option* each : command.get_options()) {
            const bool isListed = each->get_group() == group && !each->get_positional() && !group.empty();
            entries += isListed ? describeOption(*each) : "";
        }
        if (!entries.empty()) {
            text += (group == "Options" ? "" : ".SS " + escape(group) + "\n") + entries;
        }
    }
    return text;
}

std::string describeArguments(const CLI::App& command) {
    std::string text;
    for (const CLI::Option* each : positionalsOf(command)) {
        text += fmt::format(".TP\n\\fI{}\\fR\n{}.\n", escape(each->get_name(true)),
                            escape(each->get_description()));
    }
    for (const CLI::App* each : command.get_subcommands({})) {
        text += fmt::format(".TP\n\\fB{}\\fR\n{}.\n", escape(each->get_name()), escape(purposeOf(*each)));
    }
    return text;
}

// A paragraph of the footer begins with its heading and a colon. Lines that are set in stand as they are.
std::string describeFooter(const CLI::App& command) {
    std::string text;
    for (const std::string& paragraph : paragraphsOf(command.get_footer())) {
        const std::size_t colon = paragraph.find(':');
        std::string body = paragraph.substr(colon + 1);
        body.erase(0, body.find_first_not_of('\n') == std::string::npos ? 0 : body.find_first_not_of('\n'));
        text += ".SH " + upper(escape(paragraph.substr(0, colon))) + "\n";
        const bool isSetIn = body.compare(0, 2, "  ") == 0;
        body.erase(0, isSetIn ? 0 : body.find_first_not_of(' '));
        text += isSetIn ? ".nf\n" + escape(body) + ".fi\n" : escape(body);
    }
    return text;
}

}  // namespace

std::string pageNameOf(const CLI::App& command) {
    std::string name = commandLineOf(command);
    std::replace(name.begin(), name.end(), ' ', '-');
    return name;
}

std::string makePage(const CLI::App& command, const std::vector<std::string>& seeAlso,
                     const std::string& version) {
    const std::string name = pageNameOf(command);
    std::string page =
        fmt::format(".TH {} 1 \"\" \"talrtp {}\" \"User Commands\"\n", upper(escape(name)), version);
    page += fmt::format(".SH NAME\n{} \\- {}\n", escape(name), escape(purposeOf(command)));
    page += ".SH SYNOPSIS\n" + synopsisOf(command) + ".SH DESCRIPTION\n";
    const std::vector<std::string> paragraphs = paragraphsOf(command.get_description());
    for (const std::string& each : paragraphs) {
        page += (&each == &paragraphs.front() ? "" : ".PP\n") + escape(each);
    }
    page += "\n" == page.substr(page.size() - 1) ? "" : "\n";
    page +=
        describeArguments(command) + describeOptions(command) + describeFooter(command) + ".SH SEE ALSO\n";
    for (std::size_t i = 0; i < seeAlso.size(); ++i) {
        page += fmt::format(".BR {} (1){}\n", escape(seeAlso[i]), i + 1 < seeAlso.size() ? "," : "");
    }
    return page;
}

std::string makeCompletion(const CLI::App& program) {
    std::string commands;
    std::string cases;
    for (const CLI::App* command : program.get_subcommands({})) {
        std::string options;
        for (const CLI::Option* each : command->get_options()) {
            for (const std::string& name : each->get_lnames()) {
                options += (options.empty() ? "--" : " --") + name;
            }
        }
        commands += (commands.empty() ? "" : " ") + command->get_name();
        cases += fmt::format("        {}) words=\"{}\" ;;\n", command->get_name(), options);
    }
    return fmt::format(
        "# Completion of {0} for bash: subcommands, their options, and file names.\n"
        "_{0}() {{\n"
        "    local current=${{COMP_WORDS[COMP_CWORD]}} words=\"{1} --help --version\"\n"
        "    if [ \"$COMP_CWORD\" -gt 1 ]; then\n"
        "        words=\n"
        "    fi\n"
        "    case ${{COMP_WORDS[1]}} in\n"
        "{2}"
        "    esac\n"
        "    if [ \"$COMP_CWORD\" -eq 1 ] || [[ $current == -* ]]; then\n"
        "        mapfile -t COMPREPLY < <(compgen -W \"$words\" -- \"$current\")\n"
        "    else\n"
        "        mapfile -t COMPREPLY < <(compgen -f -- \"$current\")\n"
        "    fi\n"
        "}}\n"
        "complete -o filenames -F _{0} {0}\n",
        program.get_name(), commands, cases);
}

}  // namespace talrtp::host
