# shellcheck shell=bash
# To be sourced with a script's arguments, after "cd". --help prints the comment at the script's beginning.

case ${1-} in
-h | --help)
    sed -n '2,/^[^#]/ s/^# \{0,1\}//p' "$(cd "$OLDPWD" && realpath "$0")"
    exit 0
    ;;
esac

# Ends the script if there is no such preset.
require_preset() { # PRESET
    local presets
    presets=$(sed -n '/"buildPresets"/,/\]/ s/.*"name": "\([^"]*\)".*/\1/p' CMakePresets.json)
    grep -qxF -- "$1" <<<"$presets" && return 0
    # shellcheck disable=SC2086 # one line of them
    echo "$(basename "$0" .sh): there is no preset $1; there are:" $presets >&2
    exit 2
}
