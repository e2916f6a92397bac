# SPDX-License-Identifier: Apache-2.0
#
# Completes sentrel's commands in bash.

_sentrel() {
  local words
  if ((COMP_CWORD == 1)); then
    words="status on off toggle pause resume guest alone cover preferences statistics privacy journal doctor quit --help --version"
  else
    case ${COMP_WORDS[1]} in
      status) words="--json --watch" ;;
      journal) words="--since --csv" ;;
      pause) ((COMP_CWORD == 2)) && words="15m 1h tomorrow" ;;
      guest)
        ((COMP_CWORD == 2)) && words="1 2 3 30m 1h"
        [[ $COMP_CWORD == 3 && ${COMP_WORDS[2]} == [123] ]] && words="30m 1h"
        ;;
    esac
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "${COMP_WORDS[COMP_CWORD]}")
}
complete -F _sentrel sentrel
