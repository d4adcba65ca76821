# To be sourced by the other scripts: provides what a build needs.

buildPackages=(g++ cmake ninja-build pkg-config libtinyxml-dev libcli11-dev nlohmann-json3-dev libmd-dev)
testPackages=(libgtest-dev libxml2-utils)

# How many tests run at a time: more than processors, as many tests mostly wait.
testJobs=$((2 * $(nproc)))

# requirePackages PACKAGE...
# Installs the missing packages if this user may (as root, or with sudo that asks for no password);
# otherwise says which to install, and ends the script with status 1.
requirePackages() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f '${Status}\n' "$package" 2>/dev/null | grep -q ' installed$' ||
      missing+=("$package")
  done
  [ ${#missing[@]} -eq 0 ] && return

  local asRoot=()
  if [ "$(id -u)" -ne 0 ]; then
    asRoot=(sudo -n)
    if ! sudo -n true 2>/dev/null; then
      printf 'These packages are missing; install them as root and start again:\n' >&2
      printf '  apt-get install %s\n' "${missing[*]}" >&2
      exit 1
    fi
  fi
  printf 'Installing %s\n' "${missing[*]}"
  "${asRoot[@]}" apt-get update -qq
  "${asRoot[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get install -y -qq --no-install-recommends "${missing[@]}" >/dev/null
}

# requireWritable FOLDER...
# Ends the script with status 1 if it could not create or replace one of the folders: a run as root
# leaves files that other users cannot replace.
requireWritable() {
  local made foreign
  for made in "$@"; do
    if [ ! -e "$made" ] && [ ! -w . ]; then
      printf '%s is not writable: work in a copy of your own.\n' "$PWD" >&2
      exit 1
    fi
    [ -e "$made" ] || continue
    foreign=$(find "$made" ! -writable ! -type l -print -quit 2>&1)
    [ -z "$foreign" ] && continue
    printf '%s was left by another user (%s is not writable): have it removed.\n' \
      "$PWD/$made" "$foreign" >&2
    exit 1
  done
}

# configureRelease OPTION...
# Configures build/ with additional options for cmake. If it was configured for another path or
# another generator, which cmake would refuse, it is removed first.
configureRelease() {
  local cache=build/CMakeCache.txt
  if [ -e "$cache" ] && ! { grep -qxF "CMAKE_HOME_DIRECTORY:INTERNAL=$PWD" "$cache" &&
    grep -qxF 'CMAKE_GENERATOR:INTERNAL=Ninja' "$cache"; }; then
    rm -rf build
  fi
  cmake --preset release "$@"
}
