#!/usr/bin/env bash
# Installing and packaging, checked the way a user meets them.
#
#   check-package.sh install ...   installs the build into a temporary prefix and uses it
#       as an application would: builds examples/ against it once through the CMake
#       package and once through pkg-config, runs the programs against the installed
#       rux-sim started in the background, and runs every installed tool from where it
#       is installed.
#   check-package.sh deb ...       builds the Debian packages (cpack -G DEB) and checks
#       each one's files and dependencies: the runtime package holds the library and
#       nothing to build with, the development package everything to build with and
#       depends on the runtime package of its version, the tools package every tool with
#       its manual page; every package carries the licence, and depends on the package of
#       every shared library its binaries need.
#
# Usage: check-package.sh install|deb <build-dir> <source-dir> <version> <libdir> <tool>...
set -euo pipefail
check=$1 build=$2 src=$3 version=$4 libdir=$5
shift 5
tools=("$@")
source "$src/tests/support/checks.sh"
work=$(mktemp -d "/tmp/rux-$check.XXXXXX")
sim=
cleanup() {
    if [[ -n $sim ]]; then kill "$sim" 2>/dev/null || true; fi
    rm -rf "$work"
}
trap cleanup EXIT

check_install() {
    prefix=$work/prefix
    cmake --install "$build" --prefix "$prefix" >/dev/null

    # Every tool is installed with its manual page, runs where it is, and says the version.
    expect_eq "$(ls "$prefix/bin")" "$(printf '%s\n' "${tools[@]}" | sort)" "installed tools"
    for tool in "${tools[@]}"; do
        expect_eq "$("$prefix/bin/$tool" --version)" "$tool $version" "$tool --version"
        [[ -f $prefix/share/man/man1/$tool.1 ]] || fail "no manual page for $tool"
    done
    local pc=$prefix/$libdir/pkgconfig
    expect_eq "$(PKG_CONFIG_PATH=$pc pkg-config --modversion rux_client)" "$version" \
        "pkg-config --modversion rux_client"

    # examples/ built against the prefix, each way, the two builds at once.
    build_examples() {  # <way> <cmake option>...
        local way=$1
        shift
        { cmake -S "$src/examples" -B "$work/$way" -G Ninja "$@" && cmake --build "$work/$way"; } \
            >"$work/$way.log" 2>&1
    }
    build_examples package -DCMAKE_PREFIX_PATH="$prefix" &
    local package_build=$!
    PKG_CONFIG_PATH=$pc build_examples pkg-config -DRUX_EXAMPLES_FIND=pkg-config &
    local pkg_config_build=$!
    wait "$package_build" || fail "building examples/ through package: $(cat "$work/package.log")"
    wait "$pkg_config_build" ||
        fail "building examples/ through pkg-config: $(cat "$work/pkg-config.log")"
    for way in package pkg-config; do
        for program in hello_rux hello_rux_cpp; do
            expect_eq "$(ldd "$work/$way/$program" | awk '/librux_client/ {print $3}')" \
                "$prefix/$libdir/librux_client.so.${version%%.*}" "$way/$program loads"
        done
    done

    # The installed simulator in the background of a script: no stdin, stopped by SIGTERM.
    mkfifo "$work/sim.out"
    "$prefix/bin/rux-sim" --socket "$work/rux.sock" --log "$work/sim.log" \
        >"$work/sim.out" </dev/null &
    sim=$!
    exec 3<"$work/sim.out"
    read -r -t 20 -u 3 ready || fail "rux-sim did not say it is ready"
    expect_eq "$ready" "ready socket=$work/rux.sock" "rux-sim's first line"
    for way in package pkg-config; do
        out=$(RUX_SOCKET_PATH=$work/rux.sock "$work/$way/hello_rux" 2>"$work/err") ||
            fail "$way/hello_rux: $out $(cat "$work/err")"
        expect_line "$out" "hello_rux: done" "$way/hello_rux"
        out=$(RUX_SOCKET_PATH=$work/rux.sock "$work/$way/hello_rux_cpp" 2>"$work/err") ||
            fail "$way/hello_rux_cpp: $out $(cat "$work/err")"
        expect_match "$out" 'hello_rux_cpp: ([0-9]+) of \1 answered' "$way/hello_rux_cpp"
    done
    kill -TERM "$sim"
    status=0
    wait "$sim" || status=$?
    sim=
    expect_eq "$status" 0 "rux-sim's exit status after SIGTERM"
    expect_eq "$(grep -c '^connected session=' "$work/sim.log")" 4 "clients the simulator saw"
    echo "install: $prefix served two example builds; tools: ${tools[*]}"
}

check_deb() {
    cpack --config "$build/CPackConfig.cmake" -G DEB -B "$work" >"$work/cpack.log" 2>&1 ||
        fail "cpack: $(cat "$work/cpack.log")"

    major=${version%%.*}
    arch=$(dpkg --print-architecture)
    runtime=librux-client$major dev=librux-client-dev toolspkg=rux-client-tools
    expect_eq "$(cd "$work" && ls ./*.deb)" \
        "$(printf './%s_%s_%s.deb\n' "$dev" "$version" "$arch" "$runtime" "$version" "$arch" \
            "$toolspkg" "$version" "$arch" | sort)" "packages"
    deb() { echo "$work/${1}_${version}_$arch.deb"; }

    # Files (not folders) as installed, the configuration-named CMake file normalised.
    files() {
        dpkg-deb -c "$(deb "$1")" | awk '{print $6}' | sed -e 's|^\./|/|' -e '/\/$/d' \
            -e 's|rux_clientTargets-[a-z]*\.cmake|rux_clientTargets-<config>.cmake|' | sort
    }
    lib=/usr/$libdir
    expect_eq "$(files "$runtime")" "$(printf '%s\n' "$lib/librux_client.so.$major" \
        "$lib/librux_client.so.$version" "/usr/share/doc/$runtime/copyright" | sort)" \
        "$runtime files"
    expected_dev=("$lib/librux_client.so" "/usr/share/doc/$dev/copyright"
        "$lib/cmake/rux_client/rux_clientConfig.cmake"
        "$lib/cmake/rux_client/rux_clientConfigVersion.cmake"
        "$lib/cmake/rux_client/rux_clientTargets.cmake"
        "$lib/cmake/rux_client/rux_clientTargets-<config>.cmake" "$lib/pkgconfig/rux_client.pc"
        "/usr/share/doc/$dev/README.md" "/usr/share/doc/$dev/ipc-wire-format.md"
        "/usr/share/doc/$dev/log-file-format.md")
    for header in "$src"/include/rux/*.h; do expected_dev+=("/usr/include/rux/${header##*/}"); done
    expect_eq "$(files "$dev")" "$(printf '%s\n' "${expected_dev[@]}" | sort)" "$dev files"
    expected_tools=("/usr/share/doc/$toolspkg/copyright")
    for tool in "${tools[@]}"; do
        expected_tools+=("/usr/bin/$tool" "/usr/share/man/man1/$tool.1")
        [[ -f $src/docs/$tool.md ]] && expected_tools+=("/usr/share/doc/$toolspkg/$tool.md")
    done
    expect_eq "$(files "$toolspkg")" "$(printf '%s\n' "${expected_tools[@]}" | sort)" \
        "$toolspkg files"

    for package in "$runtime" "$dev" "$toolspkg"; do
        dpkg-deb -x "$(deb "$package")" "$work/root"
        expect_eq "$(dpkg-deb -f "$(deb "$package")" Package)" "$package" "package name"
        cmp -s "$src/LICENSE" "$work/root/usr/share/doc/$package/copyright" ||
            fail "$package does not carry the licence"
    done
    expect_line "$(cat "$work/root$lib/pkgconfig/rux_client.pc")" "prefix=/usr" "rux_client.pc"

    # The package names in a Depends field, without versions.
    depends() { dpkg-deb -f "$(deb "$1")" Depends | tr ',' '\n' | sed -e 's/(.*)//' -e 's/ //g'; }
    # The package of every shared library the binaries need directly. dpkg knows some
    # files by their /lib and some by their /usr/lib name (merged /usr): each library is
    # asked for under every name, all of them in one query (each query reads dpkg's lists).
    needed() {
        local -A path_of=() owner_of=()
        local binary soname path real candidate line sonames=() candidates=()
        for binary in "$@"; do
            # "libx.so.1 => /path (address)", or "/path/ld-linux.so.2 (address)"
            while read -r soname path; do path_of[$soname]=$path; done < <(ldd "$binary" |
                awk '$2 == "=>" {print $1, $3} $1 ~ /^\// {n = split($1, p, "/"); print p[n], $1}')
            sonames+=($(objdump -p "$binary" | awk '$1 == "NEEDED" {print $2}'))
        done
        sonames=($(printf '%s\n' "${sonames[@]}" | sort -u))
        for soname in "${sonames[@]}"; do
            [[ $soname == librux_client.so.* ]] && continue
            path=${path_of[$soname]:-}
            [[ -n $path ]] || fail "$*: $soname not found"
            real=$(readlink -f "$path")
            candidates+=("$path" "$real" "${real#/usr}" "/usr$path")
        done
        # "package:arch: /path"
        while IFS= read -r line; do
            owner_of[${line#*: }]=${line%%:*}
        done < <(dpkg -S "${candidates[@]}" 2>/dev/null || true)
        for soname in "${sonames[@]}"; do
            if [[ $soname == librux_client.so.* ]]; then echo "$runtime"; continue; fi
            path=${path_of[$soname]}
            real=$(readlink -f "$path")
            for candidate in "$path" "$real" "${real#/usr}" "/usr$path"; do
                if [[ -n ${owner_of[$candidate]:-} ]]; then echo "${owner_of[$candidate]}"; continue 2; fi
            done
            fail "no package holds $path"
        done | sort -u
    }
    check_depends() {
        local package=$1
        shift
        local have needs
        have=$(depends "$package" | sort -u)
        needs=$(needed "$@")  # an assignment, so a failure in needed ends the script
        for need in $needs; do
            expect_line "$have" "$need" "$package depends on $need"
        done
    }
    check_depends "$runtime" "$work/root$lib/librux_client.so.$version"
    tool_binaries=()
    for tool in "${tools[@]}"; do tool_binaries+=("$work/root/usr/bin/$tool"); done
    check_depends "$toolspkg" "${tool_binaries[@]}"
    expect_eq "$(dpkg-deb -f "$(deb "$dev")" Depends)" "$runtime (= $version)" "$dev depends"
    expect_line "$(dpkg-deb -I "$(deb "$runtime")" shlibs)" \
        "librux_client $major $runtime (>= $version)" "$runtime shlibs"
    echo "packages: $runtime, $dev, $toolspkg"
}

case $check in
    install) check_install ;;
    deb) check_deb ;;
    *) fail "unknown check $check" ;;
esac
