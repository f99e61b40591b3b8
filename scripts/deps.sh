#!/usr/bin/env bash
# Installs the Debian packages that the build (deps.sh build), the wider checks (check), the packages (package), the
# benchmarks (bench), the comparison with peers (peers) or what runs an Open vSwitch of its own (ovs) need. Silent and
# quick when everything is there; the
# package index is refreshed only when it is not.
set -euo pipefail

build_packages=(g++ cmake ninja-build pkg-config libgtest-dev libgmock-dev libcli11-dev
  nlohmann-json3-dev zlib1g-dev libpcap-dev libbdd-dev python3-jsonschema)
check_packages=(clang clang-format clang-tidy libclang-rt-14-dev gcovr valgrind)
bench_packages=(libbenchmark-dev)
peers_packages=(libdpdk-dev)
# Its libraries alone; the switch itself is unpacked beside the build, since installing it starts daemons.
ovs_packages=(libunbound8 libcap-ng0 libnuma1 libxdp1 libbpf1)
package_packages=(build-essential debhelper fakeroot lintian doxygen abigail-tools mmdebstrap)

# A tool that is on the path counts as present, wherever it came from.
declare -A command_of=([g++]=g++ [cmake]=cmake [ninja-build]=ninja [pkg-config]=pkg-config
  [clang]=clang++ [clang-format]=clang-format [clang-tidy]=clang-tidy [gcovr]=gcovr
  [valgrind]=valgrind)

optional=()  # some tests are skipped without them
case "${1:-build}" in
  build) wanted=("${build_packages[@]}") optional=("${ovs_packages[@]}") ;;
  check) wanted=("${build_packages[@]}" "${check_packages[@]}") ;;
  bench) wanted=("${build_packages[@]}" "${bench_packages[@]}") ;;
  package) wanted=("${build_packages[@]}" "${package_packages[@]}") ;;
  peers) wanted=("${build_packages[@]}" "${peers_packages[@]}") ;;
  ovs) wanted=("${build_packages[@]}" "${bench_packages[@]}" "${ovs_packages[@]}") ;;
  *) echo "usage: $0 [build|check|package|bench|peers|ovs]" >&2; exit 2 ;;
esac

have_dpkg=false
command -v dpkg-query >/dev/null 2>&1 && have_dpkg=true

present() {
  local tool=${command_of[$1]:-}
  if [[ -n $tool ]] && command -v "$tool" >/dev/null 2>&1; then return 0; fi
  $have_dpkg && [[ $(dpkg-query -W -f='${db:Status-Status}' "$1" 2>/dev/null) == installed ]]
}

missing=()
for package in "${wanted[@]}"; do
  present "$package" || missing+=("$package")
done
missing_optional=()
for package in "${optional[@]}"; do
  present "$package" || missing_optional+=("$package")
done
[[ ${#missing[@]} -eq 0 && ${#missing_optional[@]} -eq 0 ]] && exit 0

if ! command -v apt-get >/dev/null 2>&1; then
  # Other distributions name the libraries differently; CMake reports those that it cannot find.
  [[ ${#missing[@]} -eq 0 ]] && exit 0
  echo "deps: no apt-get here; make sure that these are installed: ${missing[*]}" >&2
  exit 0
fi

as_root=()
if [[ $(id -u) -ne 0 ]]; then
  if ! command -v sudo >/dev/null 2>&1; then
    [[ ${#missing[@]} -eq 0 ]] && exit 0
    echo "deps: as root, run: apt-get install ${missing[*]}" >&2
    exit 1
  fi
  as_root=(sudo)
fi

install() {
  echo "deps: installing $*"
  "${as_root[@]}" apt-get update -qq &&
    "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
      apt-get install -y -qq --no-install-recommends "$@" >/dev/null
}

if [[ ${#missing[@]} -gt 0 ]]; then install "${missing[@]}"; fi
if [[ ${#missing_optional[@]} -gt 0 ]]; then
  install "${missing_optional[@]}" || echo "deps: going on without ${missing_optional[*]}" >&2
fi
