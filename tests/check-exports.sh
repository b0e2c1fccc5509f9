#!/usr/bin/env bash
# Checks that a built librux_client.so exports exactly the public interface: every
# RUX_EXPORT function of rux/rux_client.h, property_get_int32 and the three Log
# entries of rux/rux_log.h, and nothing else.
set -euo pipefail
so="$1"
header="$2"

expected=$( {
  tr '\n' ' ' < "$header" | grep -oE 'RUX_EXPORT [^;{]*\(' | sed -E 's/.*[ *]([a-z0-9_]+)[ ]*\($/\1/'
  echo property_get_int32
  echo 'rux::Log::getInstance()'
  echo 'rux::Log::init(char const*)'
  echo 'rux::Log::release()'
} | sort -u)
actual=$(nm -D --defined-only "$so" | awk '{print $3}' | c++filt | sed 's/@.*//' | sort -u)

if [ "$expected" != "$actual" ]; then
  echo "exported symbols differ from the public interface (< expected, > exported):"
  diff <(echo "$expected") <(echo "$actual") || true
  exit 1
fi
echo "exports: $(echo "$actual" | wc -l) symbols, as expected"
