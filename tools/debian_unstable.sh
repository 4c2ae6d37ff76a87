#!/bin/sh
# A Debian unstable root that brings the interpreters newer than the host's
# (CPython 3.14 and 3.15 with their headers) and the tools that run there:
# pytest, hypothesis, setuptools, pip, auditwheel, g++; the debug builds of
# both interpreters; MinGW-w64 for the Universal C Runtime and clang (the
# Windows build and its parse as MSVC).  Made once with debootstrap from the
# Debian mirror that the host's apt sources name, then kept; commands run in
# it on the current directory, mounted at the same path.
#
# Usage: debian_unstable.sh ROOT ensure          make ROOT, or bring its packages up to date
#        debian_unstable.sh ROOT run COMMAND...  run COMMAND (a shell command line) in ROOT
#
# Needs root (unshare, mount, chroot, debootstrap); `run` makes ROOT first
# when it is missing.  DEBIAN_MIRROR overrides the mirror read from the apt
# sources.  A mount namespace of its own keeps every mount private to the
# command: nothing stays mounted when it ends, however it ends.
set -eu

PACKAGES="python3.14-dev python3.15-dev python3.14-venv python3.15-venv python3-pytest python3-hypothesis
python3-setuptools python3-wheel python3-pip python3-auditwheel patchelf g++ linux-perf
python3.14-dbg python3.15-dbg g++-mingw-w64-ucrt64 clang"

root=${1:?usage: debian_unstable.sh ROOT ensure|run COMMAND...}
action=${2:-ensure}
[ $# -ge 2 ] && shift 2 || shift $#

# The first Debian archive of the host's apt sources, in either format
# (one-line "deb URI suite ..." or deb822 "URIs: URI ...").
mirror() {
    if [ -n "${DEBIAN_MIRROR:-}" ]; then echo "$DEBIAN_MIRROR"; return; fi
    cat /etc/apt/sources.list /etc/apt/sources.list.d/*.list /etc/apt/sources.list.d/*.sources 2>/dev/null |
        awk '/^[ \t]*#/ { next }
             $1 == "deb" { for (i = 2; i <= NF; i++) if ($i ~ /^https?:\/\//) { print $i; break } }
             $1 == "URIs:" { for (i = 2; i <= NF; i++) print $i }' |
        grep -E '^https?://[^ ]+/debian/?$' | head -n 1
}

ensure() {
    stamp="$root/.vxr-packages"
    if [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$PACKAGES" ]; then return; fi
    mkdir -p "$(dirname "$root")"
    (
        flock 9
        [ -f "$stamp" ] && [ "$(cat "$stamp")" = "$PACKAGES" ] && exit 0
        command -v debootstrap >/dev/null || {
            echo "installing debootstrap from Debian"
            apt-get update -qq && apt-get install -y -qq debootstrap >/dev/null
        }
        if [ ! -d "$root" ]; then
            url=$(mirror)
            [ -n "$url" ] || { echo "no Debian archive in the apt sources; set DEBIAN_MIRROR" >&2; exit 1; }
            echo "making the Debian unstable root $root (debootstrap, about 20 s)"
            rm -rf "$root.new"
            debootstrap --variant=minbase sid "$root.new" "$url" >"$root.log" 2>&1 ||
                { tail -n 20 "$root.log" >&2; exit 1; }
            # A frozen archive keeps its Release file past its validity date.
            echo 'Acquire::Check-Valid-Until "false";' >"$root.new/etc/apt/apt.conf.d/99vxr-frozen-archive"
            mv "$root.new" "$root"
        fi
        cp /etc/resolv.conf "$root/etc/resolv.conf" 2>/dev/null || true
        echo "installing in $root: $(echo $PACKAGES)"
        chroot "$root" sh -c "apt-get update -qq && DEBIAN_FRONTEND=noninteractive \
            apt-get install -y -qq --no-install-recommends $(echo $PACKAGES)" >>"$root.log" 2>&1 ||
            { tail -n 20 "$root.log" >&2; exit 1; }
        echo "$PACKAGES" >"$stamp"
    ) 9>"$root.lock"
}

# The command runs in the current directory, with the host's Python
# settings and paths left behind (they mean nothing there).  The shared data
# folder beside the repository is mounted read-only.
run() {
    ensure
    dir=$(pwd)
    shared=${VXR_SHARED_DATA:-$dir/../shared}
    [ -d "$shared" ] && shared=$(cd "$shared" && pwd) || shared=
    mkdir -p "$root$dir"
    [ -z "$shared" ] || mkdir -p "$root$shared"
    VXR_ROOT=$root VXR_DIR=$dir VXR_SHARED=$shared VXR_COMMAND="$*" unshare --mount --propagation private sh -c '
        mount --bind "$VXR_DIR" "$VXR_ROOT$VXR_DIR"
        [ -z "$VXR_SHARED" ] || mount --bind -o ro "$VXR_SHARED" "$VXR_ROOT$VXR_SHARED"
        mount -t proc proc "$VXR_ROOT/proc"
        unset PYTHONPATH PYTHONHOME PYTHONSTARTUP PYTHONUSERBASE VIRTUAL_ENV PYENV_VERSION MAKEFLAGS MFLAGS MAKELEVEL
        export HOME=/root LANG=C.UTF-8 LC_ALL=C.UTF-8 PATH=/usr/local/sbin:/usr/local/bin:/usr/sbin:/usr/bin:/sbin:/bin
        exec chroot "$VXR_ROOT" sh -c "cd \"\$VXR_DIR\" && eval \"\$VXR_COMMAND\""'
}

case $action in
    ensure) ensure ;;
    run) run "$@" ;;
    *) echo "usage: debian_unstable.sh ROOT ensure|run COMMAND..." >&2; exit 2 ;;
esac
