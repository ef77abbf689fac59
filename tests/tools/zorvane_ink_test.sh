#!/usr/bin/env bash
# zorvane-ink as a user runs it: a scene file to a PNG with the CPU reference (no display
# needed), and clear failures for a bad scene and bad arguments.
set -u
ink=$1
dir=$(mktemp -d)
trap 'rm -rf "$dir"' EXIT
fail() { echo "FAIL: $*" >&2; exit 1; }

cat > "$dir/scene.json" <<'JSON'
{"size": [200, 120], "scale": 1, "blend": 12, "shadow": true, "gloss": true,
 "blobs": [{"center": [60, 60], "radius": 30}],
 "capsules": [{"a": [60, 60], "b": [160, 70], "ra": 10, "rb": 4, "blend": 0}]}
JSON
"$ink" --cpu "$dir/scene.json" "$dir/out.png" || fail "render exited $?"
head -c 8 "$dir/out.png" | od -An -c | grep -q "P   N   G" || fail "no PNG written"
size=$(python3 -c "import struct,sys; d=open(sys.argv[1],'rb').read(24); print(*struct.unpack('>II', d[16:24]))" "$dir/out.png")
[ "$size" = "200 120" ] || fail "PNG is $size, wanted 200 120"

echo '{"blobs": [{"center": [1], "radius": 3}]}' > "$dir/bad.json"
"$ink" --cpu "$dir/bad.json" "$dir/bad.png" 2> "$dir/err"
[ $? -eq 1 ] || fail "a bad scene must exit 1"
grep -q "blobs\[0\].center" "$dir/err" || fail "the error must name the key: $(cat "$dir/err")"
[ ! -e "$dir/bad.png" ] || fail "no PNG for a bad scene"

"$ink" --cpu 2> /dev/null
[ $? -eq 2 ] || fail "missing arguments must exit 2"
echo "zorvane-ink: ok"
