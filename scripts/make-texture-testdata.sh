#!/bin/bash
# Makes the texture test files with zemtex: a file of every format the renderer's table
# can read from disk (8x8, with mips), a cube map, a cube map with three faces, a
# volume, a tiled file, a linear file, and broken files cut or patched from good ones.
# The files are checked in under libs/zemrenderer/texture/tests/data/ and the zemtex
# tests check that this script still makes exactly them.
#
# Usage: scripts/make-texture-testdata.sh ZEMTEX OUTDIR
set -euo pipefail

if [ $# -ne 2 ]; then
  echo "usage: $0 ZEMTEX OUTDIR" >&2
  exit 2
fi
ZEMTEX=$1
OUT=$2
mkdir -p "$OUT"
cd "$OUT"

# Source pictures.
"$ZEMTEX" pattern pattern_8x8.png --size 8x8
"$ZEMTEX" pattern pattern_cube.png --size 8x48 --seed 1
"$ZEMTEX" pattern pattern_cube3.png --size 8x24 --seed 2
"$ZEMTEX" pattern pattern_volume.png --size 8x32 --seed 3
"$ZEMTEX" pattern pattern_tiled.png --size 384x320 --seed 4

# Every format, linear where the format has both forms, and the sRGB block formats.
for format in $("$ZEMTEX" --help | sed -n 's/^Formats: //p'); do
  "$ZEMTEX" encode pattern_8x8.png "format_$format.dds" --format "$format" --mips
done
for format in bc1 bc2 bc3; do
  "$ZEMTEX" encode pattern_8x8.png "format_${format}_srgb.dds" --format "$format" --mips --srgb
done

# Shapes and layouts.
"$ZEMTEX" encode pattern_cube.png cube_bc1.dds --cube --format bc1 --mips
"$ZEMTEX" encode pattern_cube3.png cube3_bgra8.dds --cube --faces 0,2,4 --mips
"$ZEMTEX" encode pattern_volume.png volume_bgra8.dds --volume 4 --mips
"$ZEMTEX" encode pattern_tiled.png tiled_bc1.dds --tiled --format bc1 --mips
# The linear flag on a BC3 file: its colours are not sRGB.
"$ZEMTEX" encode pattern_8x8.png linear_bc3.dds --format bc3 --mips

# Broken files, from good ones.
patch32() { # FILE OFFSET VALUE: a little-endian 32-bit value at OFFSET
  printf "$(printf '\\x%02x\\x%02x\\x%02x\\x%02x' $(($3 & 255)) $((($3 >> 8) & 255)) $((($3 >> 16) & 255)) $((($3 >> 24) & 255)))" |
    dd of="$1" bs=1 seek="$2" conv=notrunc status=none
}
head -c 100 format_bgra8.dds > broken_truncated_header.dds
size=$(stat -c %s format_bgra8.dds)
head -c $((size - 1)) format_bgra8.dds > broken_truncated_data.dds
cp format_bgra8.dds broken_bad_magic.dds && patch32 broken_bad_magic.dds 0 0x58534444
cp format_bgra8.dds broken_zero_width.dds && patch32 broken_zero_width.dds 16 0
cp format_bgra8.dds broken_huge_size.dds && patch32 broken_huge_size.dds 16 0x40000000
cp format_bgra8.dds broken_too_many_mips.dds && patch32 broken_too_many_mips.dds 28 40
cp format_bc1.dds broken_unknown_fourcc.dds && patch32 broken_unknown_fourcc.dds 84 0x44434241
cp format_bc1.dds broken_dx10.dds && patch32 broken_dx10.dds 84 0x30315844
cp cube_bc1.dds broken_cube_no_faces.dds && patch32 broken_cube_no_faces.dds 112 0x200
