# Shared by the scripts in this folder: places, messages, the private Wine.
set -euo pipefail

# The same sorting, numbers and upper-case letters on every machine; makensis fails in a Turkish locale.
export LC_ALL=C.UTF-8

project=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
cache=${KESTRUNE_CACHE:-${XDG_CACHE_HOME:-$HOME/.cache}/kestrune}
wine_root=$cache/wine-root
prefix_template=$cache/prefix-template

# Real host files that some tests read, where they are present. They are beside the project.
export KESTRUNE_SAMPLES=${KESTRUNE_SAMPLES:-$(dirname "$project")/shared/samples}

say() { printf '%s\n' "$*" >&2; }
die() { say "error: $*"; exit 1; }

# help_if_asked "$1": prints the comment block at the head of the calling script.
help_if_asked() {
  case "${1:-}" in
    -h | --help)
      sed -n '2,/^[^#]/{/^#/!d;s/^# \{0,1\}//;p}' "$0"
      exit 0 ;;
  esac
}

# allow_only OPTION "${1:-}": ends the calling script when it was started with anything but this option.
allow_only() {
  case "$2" in
    '' | "$1") ;;
    *) die "unknown argument $2; see --help" ;;
  esac
}

# step TEXT COMMAND...: runs the command, prints its duration, and shows its output only when it
# fails (or when KESTRUNE_VERBOSE is set).
step() {
  local text=$1 log begin
  shift
  begin=$(date +%s)
  if [ -n "${KESTRUNE_VERBOSE:-}" ]; then
    say "== $text"
    "$@"
    return
  fi
  printf '%-58s ' "$text ..." >&2
  log=$(mktemp)
  if "$@" >"$log" 2>&1; then
    say "ok, $(($(date +%s) - begin)) s"
    rm -f "$log"
  else
    local code=$?
    say "FAILED ($code)"
    tail -n 60 "$log" >&2
    rm -f "$log"
    return "$code"
  fi
}

# The machine's own Wine is used only if it can run 32-bit programs.
own_wine() {
  command -v wine >/dev/null 2>&1 && [ -e "$(dirname "$(readlink -f "$(command -v wine)")")/../lib/wine/i386-windows/kernel32.dll" ]
}

# in_wine_root COMMAND...: runs a command where Wine is installed. All calls share one temporary
# directory, in which the Wine server has the socket for the processes of a prefix. They run without the
# capabilities of root, so that Wine honours read-only files and folders.
in_wine_root() {
  if own_wine; then
    [ "$(id -u)" != 0 ] || set -- setpriv --bounding-set=-all --inh-caps=-all -- "$@"
    "$@"
    return
  fi
  mkdir -p "$cache/tmp" "$WINEPREFIX"
  local links=()
  for folder in bin lib lib32 lib64 libx32 sbin; do
    [ -L "$wine_root/$folder" ] && links+=(--symlink "usr/$folder" "/$folder")
  done
  # /small-disk is a disk of one mebibyte, for the tests that need a full one.
  bwrap --cap-drop ALL --ro-bind "$wine_root/usr" /usr --ro-bind "$wine_root/etc" /etc "${links[@]}" \
    --ro-bind "$wine_root/var" /var --dev-bind /dev /dev --proc /proc --bind "$cache/tmp" /tmp \
    --size 1048576 --tmpfs /small-disk \
    --bind "$project" "$project" --bind "$WINEPREFIX" "$WINEPREFIX" \
    --ro-bind-try "$KESTRUNE_SAMPLES" "$KESTRUNE_SAMPLES" --setenv HOME /tmp --chdir "$PWD" "$@"
}

wine_environment() {
  export WINEPREFIX=${KESTRUNE_PREFIX:-$project/build/wine/prefix}
  export WINEDEBUG=${WINEDEBUG:--all} WINEARCH=win64
  export WINEDLLOVERRIDES="mscoree,mshtml,winemenubuilder.exe="
  # A time zone other than UTC, so that tests can distinguish local time and UTC.
  export TZ=KST-5:45
}

# start_display: a virtual screen for this script's windows; sets DISPLAY and display_pid.
start_display() {
  local number
  number=$(mktemp)
  Xvfb -displayfd 3 -screen 0 1280x800x24 -nolisten tcp 3>"$number" >/dev/null 2>&1 &
  display_pid=$!
  for _ in $(seq 100); do
    [ -s "$number" ] && break
    sleep 0.05
  done
  [ -s "$number" ] || die "the virtual screen did not start"
  export DISPLAY=:$(cat "$number")
  rm -f "$number"
}

# stop_display: ends the screen that start_display started.
stop_display() {
  if [ -n "${display_pid:-}" ]; then
    kill "$display_pid" 2>/dev/null || true
    wait "$display_pid" 2>/dev/null || true
    display_pid=
  fi
}

# stop_wine: ends every process of the prefix, then the screen.
stop_wine() {
  in_wine_root wineserver -k >/dev/null 2>&1 || true
  stop_display
}

# make_prefix: creates $WINEPREFIX as a copy of a fresh prefix, which is made once.
make_prefix() {
  [ -e "$WINEPREFIX/system.reg" ] && return
  (
    mkdir -p "$cache"
    flock 9
    if [ ! -e "$prefix_template/made" ]; then
      WINEPREFIX=$prefix_template
      rm -rf "$prefix_template"
      mkdir -p "$prefix_template"
      in_wine_root wineboot -i >/dev/null 2>&1
      in_wine_root wineserver -w
      touch "$prefix_template/made"
    fi
  ) 9>"$cache/prefix.lock"
  rm -rf "$WINEPREFIX"
  mkdir -p "$(dirname "$WINEPREFIX")"
  cp -a --reflink=auto "$prefix_template" "$WINEPREFIX"
}

# make_pretty: prepares the windows of the prefix for screenshots. Without a window manager Wine draws the frames
# itself, so that windows have their titles; the sign in a close box is a letter of the font Marlett.
make_pretty() {
  mkdir -p "$WINEPREFIX/drive_c/windows/Fonts"
  cp /usr/share/wine/fonts/{marlett,tahoma,tahomabd}.ttf "$WINEPREFIX/drive_c/windows/Fonts/"
  in_wine_root wine reg add 'HKCU\Software\Wine\X11 Driver' /v Managed /d N /f >/dev/null 2>&1
}

# npm_modules FOLDER: prints the cache folder of the libraries pinned by FOLDER's package-lock.json,
# after fetching them if they are absent.
npm_modules() {
  local modules
  modules=$cache/npm-$(cat "$1/package.json" "$1/package-lock.json" | sha256sum | cut -c1-16)
  if [ ! -e "$modules/made" ]; then
    rm -rf "$modules.$$"
    mkdir -p "$modules.$$"
    cp "$1/package.json" "$1/package-lock.json" "$1/.npmrc" "$modules.$$"
    npm ci --prefix "$modules.$$" --ignore-scripts --no-audit --no-fund --silent >&2 ||
      die "npm could not fetch the libraries of $(basename "$1")"
    touch "$modules.$$/made"
    # Another run may have made it meanwhile.
    mv -T "$modules.$$" "$modules" 2>/dev/null || rm -rf "$modules.$$"
  fi
  printf '%s' "$modules/node_modules"
}
