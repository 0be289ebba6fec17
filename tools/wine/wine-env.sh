# Sourced by the Wine helpers. VEXIL_BUILD_DIR must name the build tree.
: "${VEXIL_BUILD_DIR:?VEXIL_BUILD_DIR must name the build tree}"
export VEXIL_WINE_STATE="$VEXIL_BUILD_DIR/wine"
export WINEPREFIX="$VEXIL_WINE_STATE/prefix"
export WINEDEBUG="${VEXIL_WINEDEBUG:--all}"
export WINEARCH=win64
# No Mono/Gecko installers (they would wait on a dialog); our own d3dx9_37.dll wins over Wine's.
export WINEDLLOVERRIDES="mscoree=;mshtml=;d3dx9_37=n,b"
if [ -f "$VEXIL_WINE_STATE/display" ]; then
  DISPLAY="$(cat "$VEXIL_WINE_STATE/display")"
  export DISPLAY
fi
