#!/bin/bash
# Links the AlgoFactory Processing provider into a QGIS profile and enables it.
# Usage: bash qgis/install_plugin.sh [profile folder]   (default: the "default" profile of this user)
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
profile="${1:-$HOME/.local/share/QGIS/QGIS3/profiles/default}"
mkdir -p "$profile/python/plugins"
ln -sfn "$root/qgis/algofactory_provider" "$profile/python/plugins/algofactory_provider"
# Enabled the way QGIS records it; the plug-in finds the package and build/bin through the link.
ini="$profile/QGIS/QGIS3.ini"
mkdir -p "$(dirname "$ini")"
if ! grep -q '^algofactory_provider=true' "$ini" 2>/dev/null; then
    if grep -q '^\[PythonPlugins\]' "$ini" 2>/dev/null; then
        sed -i '/^\[PythonPlugins\]/a algofactory_provider=true' "$ini"
    else
        printf '\n[PythonPlugins]\nalgofactory_provider=true\n' >> "$ini"
    fi
fi
echo "AlgoFactory provider linked into $profile (Processing toolbox: AlgoFactory)"
