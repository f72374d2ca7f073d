#!/bin/bash
# Files (Nautilus) script "Search in Trovara": a new Trovara search of the
# selected folders, or of the folder shown when no folder is selected.
set -eu
folders=()
while IFS= read -r path; do
    [ -d "$path" ] && folders+=("$path")
done <<<"${NAUTILUS_SCRIPT_SELECTED_FILE_PATHS:-}"
if [ ${#folders[@]} -eq 0 ]; then
    uri=${NAUTILUS_SCRIPT_CURRENT_URI:-}
    case $uri in
    file://*)
        encoded=${uri#file://}
        folders=("$(printf '%b' "${encoded//%/\\x}")")
        ;;
    *) folders=("$PWD") ;;
    esac
fi
exec trovara "${folders[@]}"
