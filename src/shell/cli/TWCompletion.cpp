// clipwright --completion bash|zsh: shell completion written from the command and option tables, so a
// new command or option completes without a change here. Workflow titles are asked of the program when
// completing, since the user's library changes between sessions.

#include "shell/cli/TWCommandLine.h"

namespace TWCommandLine {

namespace {

bool takesValue(const Option& option) {
    return option.value == Option::Value::Required;
}

// Every spelling of the options, "-q --quiet", and those whose value is the next word.
QString spellings(const QList<Option>& options, bool onlyValued) {
    QStringList words;
    for (const Option& option : options) {
        if (onlyValued && !takesValue(option)) continue;
        if (!option.shortName.isNull()) words.append(QStringLiteral("-") + option.shortName);
        words.append(QStringLiteral("--") + option.name);
    }
    return words.join(u' ');
}

QString bashScript() {
    QString cases;
    for (const Command& command : commands()) {
        if (!command.available) continue;
        const QList<Option> options = command.options + commonOptions();
        cases += QStringLiteral("    %1) options='%2' valued='%3' ;;\n")
                     .arg(command.name, spellings(options, false), spellings(options, true));
    }
    QStringList names;
    for (const Command& command : commands())
        if (command.available) names.append(command.name);

    // clang-format off
    return QStringLiteral(R"script(# bash completion for clipwright: eval "$(clipwright --completion bash)"
_clipwright() {
  local cur=${COMP_WORDS[COMP_CWORD]} command=${COMP_WORDS[1]} options valued
  if [ "$COMP_CWORD" -eq 1 ]; then
    COMPREPLY=($(compgen -W '%1 %2' -- "$cur"))
    return
  fi
  case $command in
%3    *) return ;;
  esac
  local previous=${COMP_WORDS[COMP_CWORD-1]}
  if [[ " $valued " == *" $previous "* ]]; then
    return # the value of an option: files, as bash completes them by default
  fi
  if [[ $cur == -* ]]; then
    COMPREPLY=($(compgen -W "$options --" -- "$cur"))
    return
  fi
  if [ "$command" = run ]; then
    # The workflow is the first word that is neither an option nor an option's value.
    local i word operands=0
    for ((i = 2; i < COMP_CWORD; i++)); do
      word=${COMP_WORDS[i]}
      [[ $word == -* || " $valued " == *" ${COMP_WORDS[i-1]} "* ]] || operands=$((operands + 1))
    done
    if [ $operands -eq 0 ]; then
      local IFS=$'\n' title typed=${cur//\\/}
      COMPREPLY=()
      while IFS= read -r title; do
        [[ $title == "$typed"* ]] && COMPREPLY+=("$(printf '%q' "$title")")
      done < <("${COMP_WORDS[0]}" workflows --names 2>/dev/null)
    fi
  fi
}
complete -o default -o bashdefault -F _clipwright clipwright
)script")
        .arg(names.join(u' '), spellings(program().options, false), cases);
    // clang-format on
}

// Text inside a zsh _arguments description: brackets and quotes would end it.
QString zshText(const QString& text) {
    QString quoted = text;
    quoted.replace(u'\'', QStringLiteral("'\\''")).replace(u'[', u'(').replace(u']', u')');
    return quoted;
}

QString zshOptionEntries(const QList<Option>& options) {
    QString entries;
    for (const Option& option : options) {
        QStringList names{QStringLiteral("--") + option.name};
        if (!option.shortName.isNull()) names.prepend(QStringLiteral("-") + option.shortName);
        const QString exclusive = names.size() > 1 ? QStringLiteral("(%1)").arg(names.join(u' ')) : QString();
        for (const QString& name : names) {
            const bool hasValue =
                option.value != Option::Value::None && name.startsWith(QStringLiteral("--"));
            QString entry = exclusive + name;
            if (hasValue)
                entry += option.value == Option::Value::Required ? QStringLiteral("=") : QStringLiteral("=-");
            entry += u'[' + zshText(option.help) + u']';
            if (hasValue) entry += u':' + zshText(option.valueName.toLower()) + QStringLiteral(":_files");
            entries += QStringLiteral(" \\\n      '%1'").arg(entry);
        }
    }
    return entries;
}

QString zshScript() {
    QString described;
    QString cases;
    for (const Command& command : commands()) {
        if (!command.available) continue;
        described += QStringLiteral("\n    '%1:%2'")
                         .arg(command.name, QString(command.summary).replace(u'\'', QStringLiteral("'\\''")));
        const QString workflow = command.name == u"run"
                                     ? QStringLiteral(" \\\n      '1:workflow:_clipwright_workflows'")
                                     : QString();
        cases += QStringLiteral("    %1) _arguments -s -S%2%3 \\\n      '*:file:_files' ;;\n")
                     .arg(command.name, zshOptionEntries(command.options + commonOptions()), workflow);
    }
    // clang-format off
    return QStringLiteral(R"script(#compdef clipwright
# zsh completion for clipwright: clipwright --completion zsh > "${fpath[1]}/_clipwright"

_clipwright_workflows() {
  local -a titles
  titles=(${(f)"$(_call_program workflows clipwright workflows --names 2>/dev/null)"})
  compadd -a titles
}

_clipwright() {
  local -a commands
  commands=(%1
  )
  if (( CURRENT == 2 )); then
    _describe -t commands 'clipwright command' commands
    _arguments -s%2
    return
  fi
  shift words
  (( CURRENT-- ))
  case ${words[1]} in
%3  esac
}

_clipwright "$@"
)script")
        .arg(described, zshOptionEntries(program().options), cases);
    // clang-format on
}

} // namespace

QString completionScript(const QString& shell) {
    if (shell == u"bash") return bashScript();
    if (shell == u"zsh") return zshScript();
    return {};
}

} // namespace TWCommandLine
