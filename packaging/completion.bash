# Completion of ostrel-host, ostrel-meter and ostrel-station in bash: what their --help lists.
_ostrel() {
  local program=$1 current=$2 previous=$3 word command= help
  for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
    [[ $word == -* ]] || { command=$word; break; }
  done
  help=$("$program" $command --help 2>/dev/null) || help=$("$program" --help 2>/dev/null)
  COMPREPLY=()
  if [[ $previous == --* && $(sed -n "s/^  $previous [A-Z]*:{\([^}]*\)}.*/\1/p" <<<"$help") =~ .+ ]]; then
    COMPREPLY=($(compgen -W "${BASH_REMATCH[0]//,/ }" -- "$current"))
  elif [[ $current == -* ]]; then
    COMPREPLY=($(compgen -W "$(sed -nE 's/^  (-h,)?(--[a-z0-9-]+).*/\2/p' <<<"$help")" -- "$current"))
  elif [[ -z $command ]]; then
    COMPREPLY=($(compgen -W "$(sed -nE '/^Subcommands:/,/^$/s/^  ([a-z]+) .*/\1/p' <<<"$help")" -- "$current"))
  fi
}
complete -o default -F _ostrel ostrel-host ostrel-meter ostrel-station
