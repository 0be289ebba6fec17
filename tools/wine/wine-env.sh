# Sourced by the Wine helpers. VEXIL_BUILD_DIR must name the build tree.
: "${VEXIL_BUILD_DIR:?VEXIL_BUILD_DIR must name the build tree}"
export VEXIL_WINE_STATE="$VEXIL_BUILD_DIR/wine"
# VEXIL_WINE_HEADS=2 selects a second display with two screens (two Direct3D heads of one group),
# with its own Xvfb, prefix and wineserver beside the default one.
if [ "${VEXIL_WINE_HEADS:-1}" = 2 ]; then
  export VEXIL_WINE_STATE="$VEXIL_BUILD_DIR/wine-2heads"
fi
export WINEPREFIX="$VEXIL_WINE_STATE/prefix"
export WINEDEBUG="${VEXIL_WINEDEBUG:--all}"
export WINEARCH=win64
# No Mono/Gecko installers (they would wait on a dialog); our own d3dx9_37.dll wins over Wine's.
# No debugger: a crashing program would start winedbg --auto, which holds the caller's pipe open,
# so the crash would hang the run instead of failing it.
export WINEDLLOVERRIDES="mscoree=;mshtml=;winedbg.exe=d;d3dx9_37=n,b"
if [ -f "$VEXIL_WINE_STATE/display" ]; then
  DISPLAY="$(cat "$VEXIL_WINE_STATE/display")"
  export DISPLAY
fi

# A prefix is usable once its system DLLs are in place (system.reg appears long before them).
prefix_ready() { [ -f "$WINEPREFIX/drive_c/windows/system32/kernel32.dll" ]; }

# Makes the prefix if it is not usable yet, under the caller's lock; a set-up cut short (a Wine
# process killed mid-way on a busy machine) is thrown away and made again.
make_prefix() {
  local attempt
  for attempt in 1 2 3; do
    prefix_ready && return 0
    rm -rf "$WINEPREFIX"
    setsid wineboot -i </dev/null >/dev/null 2>&1 9>&- || true
    wineserver -w >/dev/null 2>&1 9>&- || true
  done
  prefix_ready
}
