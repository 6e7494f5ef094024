#!/usr/bin/env bash
# Installs what the project needs and this machine lacks; a second call does nothing.
#
#   scripts/setup.sh run         what ./run needs
#   scripts/setup.sh universes   what ./run --universe needs (what ./run needs included)
#   scripts/setup.sh test        what ./test needs (what ./run --universe needs included)
#   scripts/setup.sh tools       what a contributor wants now and then
#
# Debian packages come from scripts/packages.txt, Python packages from requirements.txt. The
# Python packages go into a virtual environment at build/venv. Options, from the environment:
#   VARNHOLT_SKIP_PACKAGES=1   leave the system's packages alone: another tool has installed them
#   VARNHOLT_SKIP_PYTHON=1     make no virtual environment
set -euo pipefail

root=$(cd "$(dirname "${BASH_SOURCE[0]}")/.." && pwd)
venv=$root/build/venv
log=$root/build/setup.log

say() { printf '%s\n' "$*" >&2; }

fail() {
  say "setup: $1"
  shift
  local line
  for line in "$@"; do say "       $line"; done
  exit 1
}

# The last lines of the log, for a message about a command that failed.
show_log() {
  say "--- the end of $log:"
  tail -n 20 "$log" >&2
  say "---"
}

# The lines of the given file that belong to one of the given sections, without comments.
section_lines() {
  local file=$1
  shift
  awk -v wanted=" $* " '
    match($0, /^(# )?\[[a-z]+\]$/) {
      name = $0
      gsub(/[^a-z]/, "", name)
      inside = index(wanted, " " name " ") > 0
      next
    }
    /^--/ { print; next }
    { sub(/(^|[ \t])#.*/, ""); sub(/[ \t]+$/, "") }
    inside && NF { print }
  ' "$file"
}

package_is_installed() {
  [[ $(dpkg-query --show --showformat='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

# Sets "prefix", what a command is put behind to run as root.
find_root_prefix() {
  prefix=()
  ((EUID != 0)) || return 0
  if ! command -v sudo >/dev/null; then
    fail "not root, and there is no sudo to become root with." \
      "Have an administrator install: ${missing[*]}"
  fi
  # Ask for a password only where somebody can answer.
  if [[ -t 0 && -z ${CI:-} ]]; then
    prefix=(sudo)
    sudo -v && return 0
  else
    prefix=(sudo -n)
    sudo -n true 2>>"$log" && return 0
  fi
  show_log
  fail "not root, and sudo does not let this user become it." \
    "Have an administrator install: ${missing[*]}"
}

# Runs a command as root, its output going to the log and nothing coming in.
as_root() {
  "${prefix[@]}" env DEBIAN_FRONTEND=noninteractive "$@" >>"$log" 2>&1 </dev/null
}

install_packages() {
  local -a wanted missing=() unknown=() prefix=()
  local package
  mapfile -t wanted < <(section_lines "$root/scripts/packages.txt" "$@")
  if ! command -v dpkg-query >/dev/null || ! command -v apt-get >/dev/null; then
    fail "this is no Debian system, so its packages cannot be installed from here." \
      "Install what these Debian packages hold: ${wanted[*]}" \
      "and call again with VARNHOLT_SKIP_PACKAGES=1 in the environment."
  fi
  for package in "${wanted[@]}"; do
    package_is_installed "$package" || missing+=("$package")
  done
  ((${#missing[@]} > 0)) || return 0

  say "setup: installing ${#missing[@]} Debian packages: ${missing[*]}"
  local -a apt=(apt-get -q -y -o DPkg::Lock::Timeout=300 -o Acquire::Retries=3)
  find_root_prefix
  if ! as_root "${apt[@]}" update; then
    # One unreachable source among several is no reason to stop: the install tells.
    say "setup: apt-get update failed; trying with the package lists that are there."
    show_log
  fi
  as_root "${apt[@]}" install --no-install-recommends "${missing[@]}" || true

  for package in "${missing[@]}"; do
    package_is_installed "$package" || unknown+=("$package")
  done
  ((${#unknown[@]} == 0)) && return 0
  show_log
  fail "could not get these Debian packages: ${unknown[*]}" \
    "The project is made for Debian 12; the whole of what apt-get said is in $log."
}

# Makes the virtual environment and installs one section of the requirements into it. A stamp
# holds what was installed and where, so that an unchanged section is not looked at again.
install_requirements() {
  local section=$1 stamp=$venv/.installed-$1
  local python=/usr/bin/python3
  # The system's interpreter, because python3-dev holds the headers of that one.
  [[ -x $python ]] || python=$(command -v python3) || fail "there is no python3."
  local selection
  selection=$(section_lines "$root/requirements.txt" "$section")
  local state
  state=$(printf '%s\n%s\n%s\n' "$venv" "$("$python" --version)" "$selection" | sha256sum)
  if [[ -x $venv/bin/python && -f $stamp && $(<"$stamp") == "$state" ]]; then
    return 0
  fi

  if [[ ! -x $venv/bin/pip ]] || ! grep -qsxF "$venv" "$venv/.place" ||
    [[ $("$venv/bin/python" --version 2>&1) != "$("$python" --version)" ]]; then
    say "setup: making the virtual environment $venv"
    if ! "$python" -m venv --clear "$venv" >>"$log" 2>&1 </dev/null; then
      show_log
      fail "could not make a virtual environment with $python." \
        "On Debian the package python3-venv holds what is missing."
    fi
    printf '%s\n' "$venv" >"$venv/.place"
  fi
  say "setup: installing the Python packages of requirements.txt, section '$section'"
  printf '%s\n' "$selection" >"$venv/.requirements-$section.txt"
  if ! "$venv/bin/python" -m pip install --no-deps --no-input --disable-pip-version-check \
    --no-warn-script-location --requirement "$venv/.requirements-$section.txt" \
    >>"$log" 2>&1 </dev/null; then
    show_log
    fail "pip could not install section '$section' of requirements.txt." \
      "The wheels are pinned by their contents: it needs a package index that carries them."
  fi
  printf '%s\n' "$state" >"$stamp"
}

mkdir -p "$root/build"
: >"$log"
case ${1:-} in
  run) sections=(run) ;;
  universes) sections=(run universes) ;;
  test) sections=(run universes test) ;;
  tools) sections=(tools) ;;
  *) fail "say what for: scripts/setup.sh run, universes, test or tools." ;;
esac

[[ -n ${VARNHOLT_SKIP_PACKAGES:-} ]] || install_packages "${sections[@]}"
if [[ -z ${VARNHOLT_SKIP_PYTHON:-} && $1 != tools ]]; then
  for section in "${sections[@]}"; do install_requirements "$section"; done
fi
