# bash completion for dnspair. What there is to offer the program says itself.

_dnspair() {
  local line=${COMP_LINE:0:COMP_POINT} words text _
  read -ra words <<<"$line"
  [[ $line != *[[:space:]] ]] || words+=("")
  local current=${words[-1]}
  COMPREPLY=()
  while IFS=$'\t' read -r text _; do
    case $text in
      :files)
        compopt -o filenames 2>/dev/null
        mapfile -t -O "${#COMPREPLY[@]}" COMPREPLY < <(compgen -f -- "$current")
        ;;
      :nospace) compopt -o nospace 2>/dev/null ;;
      *) COMPREPLY+=("$text") ;;
    esac
  done < <("${words[0]}" --complete "${words[@]:1}" 2>/dev/null)
  # The shell takes what stands behind an equals sign for a word of its own.
  if [[ $current == *=* && $COMP_WORDBREAKS == *=* ]]; then
    COMPREPLY=("${COMPREPLY[@]#"${current%"${current##*=}"}"}")
  fi
}

complete -F _dnspair dnspair
