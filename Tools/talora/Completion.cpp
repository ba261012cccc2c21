// Scripts that let bash, zsh and fish complete commands, options, files, and the names of nodes and states.
//
// The names come from "talora --names NET", run on the first net file of the line; a net that does not open
// (encrypted, damaged) just gives none.
#include <cstring>

#include "talora/Manual.h"
#include "talora/NetFile.h"
#include "talora/Text.h"

namespace command {

namespace {

// What a value is completed from.
enum class Kind { kNone, kFile, kNet, kNode, kNodeEquals, kState, kWords };

Kind KindOf(const OptionText& option)
{
    static constexpr struct {
        const char* value;
        Kind kind;
    } kKinds[] = {
        {"NET", Kind::kNet},
        {"IN", Kind::kNet},
        {"OUT", Kind::kNet},
        {"FILE", Kind::kFile},
        {"FOLDER", Kind::kFile},
        {"NODE", Kind::kNode},
        {"NODE=STATE", Kind::kState},
        {"NODE=v1,v2,...", Kind::kNodeEquals},
        {"NODE=REAL", Kind::kNodeEquals},
    };
    if (!option.words.empty()) return Kind::kWords;
    for (const auto& row : kKinds)
        if (option.value == row.value) return row.kind;
    return Kind::kNone;
}

const char* KindName(Kind kind)
{
    static constexpr const char* kNames[] = {"none", "file", "net", "node", "node=", "state", "words"};
    return kNames[static_cast<int>(kind)];
}

std::string Join(const std::vector<std::string>& words, const char* between)
{
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : between) + word;
    return text;
}

// Options of the whole program hold for each command.
std::vector<OptionText> OptionsOf(const std::vector<CommandText>& commands, const CommandText& command)
{
    std::vector<OptionText> options = command.options;
    if (command.name.empty()) return options;
    for (const OptionText& option : commands[0].options)
        if (option.names.back() != "--help" && option.names.back() != "--version") options.push_back(option);
    return options;
}

std::string Kinds(const OptionText& option)
{
    return KindName(KindOf(option)) + (option.words.empty() ? "" : " " + Join(option.words, " "));
}

// Between single quotes of a shell.
std::string Quoted(const std::string& text)
{
    std::string quoted = "'";
    for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

// The text with a mark of the template replaced.
std::string With(std::string text, const char* mark, const std::string& replacement)
{
    return text.replace(text.find(mark), strlen(mark), replacement);
}

// --- bash ------------------------------------------------------------------------------------------

constexpr const char* kBash = R"SH(# bash completion for talora

# The options and arguments of a command.
_talora_options()
{
    case $1 in
@OPTIONS@    esac
}

# What the value of an option, or the n-th argument, of a command is.
_talora_kind()
{
    case "$1 $2" in
@KINDS@        *) echo none ;;
    esac
}

# The first net file among the words.
_talora_net()
{
    local word
    for word in "${words[@]}"; do
        case $word in
            *.dne | *.tala) if [ -r "$word" ]; then echo "$word"; return; fi ;;
        esac
    done
}

_talora_names() { talora --names "$@" </dev/null 2>/dev/null; }

_talora_complete()
{
    local kind=$1 net IFS=$' \t\n'
    shift
    case $kind in
        file | net)
            compopt -o filenames 2>/dev/null
            local IFS=$'\n'
            if [ "$kind" = file ]; then COMPREPLY=($(compgen -f -- "$current")); return; fi
            COMPREPLY=($(compgen -d -- "$current"; compgen -f -X '!*.dne' -- "$current"
                compgen -f -X '!*.tala' -- "$current"))
            return ;;
        words) COMPREPLY=($(compgen -W "$*" -- "$current")); return ;;
        none | flag) return ;;
    esac
    net=$(_talora_net)
    [ -n "$net" ] || return
    if [ "$kind" = node ]; then
        COMPREPLY=($(compgen -W "$(_talora_names "$net")" -- "$current"))
    elif [[ $current != *=* ]]; then
        compopt -o nospace 2>/dev/null
        COMPREPLY=($(compgen -S = -W "$(_talora_names "$net")" -- "$current"))
    elif [ "$kind" = state ]; then
        COMPREPLY=($(compgen -P "${current%%=*}=" -W "$(_talora_names "$net" "${current%%=*}")" -- "${current#*=}"))
    fi
}

# Where = divides words, only what is behind it is put in.
_talora_cut()
{
    [[ $current == *=* && $COMP_WORDBREAKS == *=* ]] || return 0
    COMPREPLY=("${COMPREPLY[@]#*=}")
}

_talora()
{
    local words current previous command="" arguments=0 i kind
    COMPREPLY=()
    read -r -a words <<<"${COMP_LINE:0:COMP_POINT}"
    if [[ ${COMP_LINE:0:COMP_POINT} == *[[:space:]] ]]; then words+=(""); fi
    current=${words[${#words[@]} - 1]}
    previous=${words[${#words[@]} - 2]}
    for ((i = 1; i < ${#words[@]} - 1; ++i)); do
        if [[ ${words[i]} == -?* ]]; then
            if [ "$(_talora_kind "$command" "${words[i]}")" != flag ]; then i=$((i + 1)); fi
        elif [ -z "$command" ]; then
            command=${words[i]}
        else
            arguments=$((arguments + 1))
        fi
    done
    if [[ $previous == -?* ]]; then
        kind=$(_talora_kind "$command" "$previous")
        if [ "$kind" != flag ]; then
            _talora_complete $kind
            _talora_cut
            return
        fi
    fi
    if [[ $current == -* ]]; then
        COMPREPLY=($(compgen -W "$(_talora_options "$command")" -- "$current"))
    elif [ -z "$command" ]; then
        COMPREPLY=($(compgen -W "@COMMANDS@" -- "$current"))
    else
        _talora_complete $(_talora_kind "$command" $((arguments + 1)))
    fi
}

complete -F _talora talora
)SH";

// A branch per option or argument, by command and name (or number).
std::string BashKinds(const std::vector<CommandText>& commands, const CommandText& command)
{
    std::string text;
    int argument = 0;
    for (const OptionText& option : OptionsOf(commands, command)) {
        const std::string of = command.name.empty() ? "\" " : "\"" + command.name + " ";
        std::string labels;
        if (option.is_argument)
            labels = of + std::to_string(++argument) + "\"";
        else
            for (const std::string& name : option.names)
                labels.append(labels.empty() ? "" : " | ").append(of).append(name).append("\"");
        text += "        " + labels + ") echo " + (option.value.empty() ? "flag" : Kinds(option)) + " ;;\n";
    }
    return text;
}

// --- zsh -------------------------------------------------------------------------------------------

constexpr const char* kZsh = R"SH(#compdef talora
# zsh completion for talora

_talora_net()
{
    local word
    for word in $words; do
        if [[ ${(Q)word} == *.(dne|tala) && -r ${(Q)word} ]]; then
            print -r -- ${(Q)word}
            return
        fi
    done
}

_talora_names() { talora --names "$@" </dev/null 2>/dev/null }

_talora_nodes()
{
    local net=$(_talora_net)
    local -a names
    [[ -n $net ]] && names=(${(f)"$(_talora_names $net)"})
    compadd "$@" -a names
}

_talora_node_equals() { _talora_nodes "$@" -S = }

_talora_states()
{
    local net=$(_talora_net)
    local -a names
    if compset -P 1 '*='; then
        names=(${(f)"$(_talora_names $net ${IPREFIX%=})"})
        compadd -a names
    else
        _talora_nodes "$@" -S =
    fi
}

_talora()
{
    local curcontext=$curcontext state line
    _arguments -C \
@COMMON@        '1:command:->command' \
        '*::argument:->argument' && return
    case $state in
        command)
            local -a commands=(
@COMMANDS@            )
            _describe command commands ;;
        argument)
            case $line[1] in
@CASES@            esac ;;
    esac
}

_talora "$@"
)SH";

std::string ZshAction(const OptionText& option)
{
    switch (KindOf(option)) {
        case Kind::kFile:
            return "_files";
        case Kind::kNet:
            return "_files -g \"*.(dne|tala)\"";
        case Kind::kNode:
            return "_talora_nodes";
        case Kind::kNodeEquals:
            return "_talora_node_equals";
        case Kind::kState:
            return "_talora_states";
        case Kind::kWords:
            return "(" + Join(option.words, " ") + ")";
        case Kind::kNone:
            break;
    }
    return " ";
}

// Colons and brackets end the parts of a row.
std::string ZshText(const std::string& text)
{
    std::string escaped;
    for (const char c : text) escaped += strchr(":[]\\", c) ? std::string("\\") + c : std::string(1, c);
    return escaped;
}

std::string ZshRows(const OptionText& option)
{
    const std::string value =
        option.value.empty() ? "" : ":" + ZshText(option.value) + ":" + ZshAction(option);
    if (option.is_argument)
        return Quoted((option.is_repeatable ? "*" : option.is_required ? "" : ":") + value) + "\n";
    std::string rows;
    for (const std::string& name : option.names) {
        const std::string others = option.names.size() > 1 ? "(" + Join(option.names, " ") + ")" : "";
        std::string row = option.is_repeatable ? "*" : others;
        row.append(name).append("[").append(ZshText(option.help)).append("]").append(value);
        rows += Quoted(row) + "\n";
    }
    return rows;
}

// Each line indented, and continued by the next.
std::string Continued(const std::string& rows, const std::string& indent)
{
    std::string text;
    for (size_t at = 0; at < rows.size();) {
        const size_t end = rows.find('\n', at);
        text += indent + rows.substr(at, end - at) + " \\\n";
        at = end + 1;
    }
    return text;
}

// --- fish ------------------------------------------------------------------------------------------

constexpr const char* kFish = R"SH(# fish completion for talora

function __talora_names
    for word in (commandline -opc)
        if string match -qr '\.(dne|tala)$' -- $word; and test -r $word
            talora --names $word $argv </dev/null 2>/dev/null
            return
        end
    end
end

function __talora_states
    set -l current (commandline -ct)
    if string match -q '*=*' -- $current
        set -l node (string split -m 1 = -- $current)[1]
        for state in (__talora_names $node)
            echo $node=$state
        end
    else
        for node in (__talora_names)
            echo $node=
        end
    end
end

complete -c talora -f
)SH";

std::string FishValue(const OptionText& option)
{
    switch (KindOf(option)) {
        case Kind::kFile:
        case Kind::kNet:
            return " -rF";
        case Kind::kNode:
            return " -xa '(__talora_names)'";
        case Kind::kNodeEquals:
            return " -xa '(__talora_names)='";
        case Kind::kState:
            return " -xa '(__talora_states)'";
        case Kind::kWords:
            return " -xa " + Quoted(Join(option.words, " "));
        case Kind::kNone:
            break;
    }
    return option.value.empty() ? "" : " -x";
}

// Arguments have no name; fish completes them from the same condition.
std::string FishRow(const std::string& condition, const OptionText& option)
{
    if (option.is_argument) {
        const std::string value = FishValue(option);
        return value == " -x" ? ""
                              : "complete -c talora" + condition +
                                    (value == " -rF" ? " -F" : " -f" + value.substr(2)) + "\n";
    }
    std::string row = "complete -c talora" + condition;
    for (const std::string& name : option.names)
        row += name.starts_with("--") ? " -l " + name.substr(2) : " -s " + name.substr(1);
    return row + FishValue(option) + " -d " + Quoted(option.help) + "\n";
}

}  // namespace

// The template with its three lists filled in.
std::string BashCompletion(const std::vector<CommandText>& commands)
{
    std::string options, kinds, names;
    for (const CommandText& command : commands) {
        options += "        " + (command.name.empty() ? std::string("\"\"") : command.name) + ") echo \"";
        std::string all;
        for (const OptionText& option : OptionsOf(commands, command))
            if (!option.is_argument) all += (all.empty() ? "" : " ") + Join(option.names, " ");
        options += all + "\" ;;\n";
        kinds += BashKinds(commands, command);
        if (!command.name.empty()) names += (names.empty() ? "" : " ") + command.name;
    }
    return With(With(With(kBash, "@OPTIONS@", options), "@KINDS@", kinds), "@COMMANDS@", names);
}

std::string ZshCompletion(const std::vector<CommandText>& commands)
{
    std::string common, names, cases;
    for (const OptionText& option : commands[0].options) common += ZshRows(option);
    for (const CommandText& command : commands) {
        if (command.name.empty()) continue;
        names += "                " + Quoted(command.name + ":" + ZshText(command.summary)) + "\n";
        std::string rows;
        for (const OptionText& option : OptionsOf(commands, command)) rows += ZshRows(option);
        const std::string all = Continued(rows, "                        ");
        cases += "                " + command.name + ")\n                    _arguments -S \\\n" +
                 all.substr(0, all.size() - 3) + " ;;\n";
    }
    return With(With(With(kZsh, "@COMMON@", Continued(common, "        ")), "@COMMANDS@", names), "@CASES@",
                cases);
}

std::string FishCompletion(const std::vector<CommandText>& commands)
{
    std::string text = kFish;
    for (const CommandText& command : commands) {
        if (command.name.empty()) continue;
        text += "complete -c talora -n __fish_use_subcommand -a " + command.name + " -d " +
                Quoted(command.summary) + "\n";
    }
    for (const OptionText& option : commands[0].options) text += FishRow("", option);
    for (const CommandText& command : commands) {
        if (command.name.empty()) continue;
        for (const OptionText& option : command.options)
            text += FishRow(" -n '__fish_seen_subcommand_from " + command.name + "'", option);
    }
    return text;
}

void PrintNames(Session& session, const std::string& path, const std::string& node_name)
{
    session.options.quiet = true;
    SetPasswordHandler_vx(session.env, nullptr, nullptr);  // no questions in the midst of a line
    net_bn* net = ReadNet(session, path);
    if (node_name.empty()) {
        for (const std::string& name : NodeNames(GetNetNodes2_bn(net, nullptr))) session.Print(name + "\n");
    } else {
        for (const std::string& name : StateNames(FindNode(net, node_name)))
            session.Print(Printable(name) + "\n");
    }
}

}  // namespace command
