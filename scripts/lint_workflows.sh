#!/usr/bin/env bash
# Checks the workflows in .github/ with action-validator, which npm installs below build/. Exit status 77: there is no npm.
. "$(dirname "$0")/lib.sh"
command -v npm >/dev/null || skip 'there is no npm'
work=build/workflows
pinned=(tests/workflows/{package.json,package-lock.json,.npmrc})
mkdir -p "$work"
if ! cat "${pinned[@]}" | cmp -s - "$work/installed"; then
  cp -t "$work" "${pinned[@]}"
  (cd "$work" && npm ci --ignore-scripts --no-audit --no-fund --loglevel=error)
  cat "${pinned[@]}" >"$work/installed"
fi
is_valid() { node "$work/node_modules/@action-validator/cli/cli.mjs" "$1"; }

# A workflow that has this in place of that is refused.
is_refused() {
  sed "s/$2/$3/" "$1" >"$work/spoilt.yml"
  ! cmp -s "$1" "$work/spoilt.yml" && ! is_valid "$work/spoilt.yml"
}

# Tags: nobody can read from a hash which version it is, or invent one that exists.
names_actions_by_tag() { ! grep -E 'uses:' "$1" | grep -vE 'uses: actions/[a-z-]+@v[0-9]+$'; }

only_reads() { grep -A 1 -x 'permissions:' "$1" | grep -x '  contents: read' && ! grep -E ': write' "$1"; }

# knows_kind KIND: whether run.cmd has it.
knows_kind() { tr -d '\r' <tests/windows/run.cmd | grep -x ":$1"; }

workflow=.github/workflows/windows.yml
check "$workflow is valid" is_valid "$workflow"
check 'a key that does not exist is refused' is_refused "$workflow" runs-on runs-onn
check 'a job that does not exist is refused' is_refused "$workflow" 'needs: build' 'needs: built'
check 'actions are named by tag' names_actions_by_tag "$workflow"
check 'the workflow may only read' only_reads "$workflow"
while read -r kind; do
  check "run.cmd knows $kind" knows_kind "$kind"
done < <(grep -oP '(?<=run\.cmd )[a-z]+' "$workflow" | sort -u)
report "$passed" "$failed"
