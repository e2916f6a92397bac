#compdef sentrel
# SPDX-License-Identifier: Apache-2.0

local -a commands=(
  'status:tell what protection does'
  'on:turn protection on'
  'off:turn protection off'
  'toggle:turn protection on or off'
  'pause:pause for a while'
  'resume:end the pause'
  'guest:let guests look on'
  'alone:let nobody look on any more'
  'cover:cover every screen, or uncover them'
  'preferences:open the preferences'
  'statistics:open the statistics'
  'privacy:have it try what it says it cannot do'
  'journal:list the alerts that are kept'
  'doctor:tell what is missing, and what to do'
  'quit:end the program'
  '--help:print the commands'
  '--version:print the version'
)

if ((CURRENT == 2)); then
  _describe command commands
else
  case $words[2] in
    status) compadd -- --json --watch ;;
    journal) compadd -- --since --csv ;;
    pause) ((CURRENT == 3)) && compadd 15m 1h tomorrow ;;
    guest)
      ((CURRENT == 3)) && compadd 1 2 3 30m 1h
      [[ $CURRENT == 4 && $words[3] == [123] ]] && compadd 30m 1h
      ;;
  esac
fi
