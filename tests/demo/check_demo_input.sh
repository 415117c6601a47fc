#!/bin/sh
# check_demo_input.sh RUN LUMDEMO
# lumdemo on images of the user's: small valid 8-bit and 16-bit binary PGMs
# give every result and a contact sheet of them all; malformed and
# truncated files are refused with exit status 2 and a message naming the
# fault, and write nothing. RUN runs an i386 program (natively or emulated).
set -u
run=$1 demo=$2
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
status=0
fail() { echo "FAIL: $*"; status=1; }

# Valid images: a header with a comment, 8-bit and 16-bit (big-endian)
# samples. 23 x 9 is odd in both directions, so no tile or row is exact.
pixels() { awk -v n="$1" -v wide="$2" 'BEGIN { for (i = 0; i < n; i++) { v = (i * 37) % 256;
  if (wide) printf "%c%c", v, (i * 11) % 256; else printf "%c", v } }'; }
{ printf 'P5\n# made by the test\n23 9\n255\n'; pixels 207 0; } > "$work/eight.pgm"
{ printf 'P5 23\n9 65535\n'; pixels 207 1; } > "$work/sixteen.pgm"
for image in eight sixteen; do
  out=$work/out_$image; mkdir "$out"
  if ! LC_ALL=C "$run" "$demo" -o "$out" "$work/$image.pgm" > "$out.log" 2>&1; then
    fail "$image.pgm: exit status $?"; tail -n 20 "$out.log"; continue
  fi
  grep -q "23x9, $([ $image = eight ] && echo 8 || echo 16) bits per pixel" "$out.log" ||
    fail "$image.pgm: the demo does not report the image it read"
  # 20 results and the sheet: 6 tiles of 23 x 9 a row, 4-pixel gaps, 4 rows.
  [ "$(ls "$out" | grep -c '^lumdemo_.*\.pgm$')" -eq 21 ] || fail "$image.pgm: not 21 PGM files"
  for f in "$out"/lumdemo_*.pgm; do
    case $f in *contact_sheet*) want="166 56" ;; *) want="23 9" ;; esac
    [ "$(head -c 20 "$f" | sed -n 2p)" = "$want" ] || fail "$f: size is not $want"
  done
  # The first tile of the sheet is the image itself, as bytes: sample / maxval * 255.
  sheet_row=$(tail -c $((166 * 56)) "$out/lumdemo_contact_sheet.pgm" | od -An -v -tu1 -j $((166 * 4 + 4)) -N 23 | tr -s ' \n' ' ')
  image_row=$(tail -c $((23 * 9)) "$out/lumdemo_scene_8u.pgm" | od -An -v -tu1 -N 23 | tr -s ' \n' ' ')
  [ "$sheet_row" = "$image_row" ] || fail "$image.pgm: the sheet's first tile is not the image"
done
# The 8-bit image comes back as it was; the 16-bit one as its high byte,
# rounded: (v * 256 + low) / 65535 * 255.
want=$(pixels 23 0 | od -An -v -tu1 | tr -s ' \n' ' ')
got=$(tail -c 207 "$work/out_eight/lumdemo_scene_8u.pgm" | od -An -v -tu1 -N 23 | tr -s ' \n' ' ')
[ "$want" = "$got" ] || fail "eight.pgm: the image read is not the image written ($got)"
want=$(awk 'BEGIN { for (i = 0; i < 23; i++) printf " %d", int(((i * 37) % 256 * 256 + (i * 11) % 256) / 65535 * 255 + 0.5); print " " }')
got=$(tail -c 207 "$work/out_sixteen/lumdemo_scene_8u.pgm" | od -An -v -tu1 -N 23 | tr -s ' \n' ' ')
[ "$want" = "$got" ] || fail "sixteen.pgm: expected$want got $got"

# Malformed files: name|content (printf format)|what the message must say.
while IFS='|' read -r name content says; do
  [ -n "$name" ] || continue
  printf "$content" > "$work/$name.pgm"
  out=$work/bad_$name; mkdir "$out"
  "$run" "$demo" -o "$out" "$work/$name.pgm" > "$out.log" 2>&1
  code=$?
  [ $code -eq 2 ] || fail "$name: exit status $code, not 2"
  grep -q "lumdemo: $work/$name.pgm: .*$says" "$out.log" || { fail "$name: no message '$says'"; tail -n 3 "$out.log"; }
  [ -z "$(ls "$out")" ] || fail "$name: wrote files though it refused the image"
done <<'TABLE'
empty||does not start with P5
ascii_pgm|P2\n2 2\n255\n1 2 3 4\n|magic number is P2
colour_ppm|P6\n1 1\n255\n\1\2\3|magic number is P6
no_maxval|P5\n4 4\n|header ends before the maxval
letters|P5\nfour 4\n255\n|width is not a decimal number
zero_width|P5\n0 4\n255\n|at least 1
zero_maxval|P5\n1 1\n0\n\0|maxval must be 1..65535
maxval_too_big|P5\n1 1\n65536\n\0\0|maxval must be 1..65535
huge_side|P5\n99999999999 1\n255\n|far too large
too_many_pixels|P5\n16384 16384\n255\n|too large for this demo
no_pixels|P5\n2 2\n255|no whitespace after maxval
truncated_8bit|P5\n4 4\n255\n0123456789|need 16 bytes, the file has 10
truncated_16bit|P5\n2 2\n1000\n\1\1\1\1\1\1\1|need 8 bytes, the file has 7
above_maxval|P5\n2 1\n100\n\62\145|pixel 1 is 101, above maxval 100
TABLE
"$run" "$demo" -o "$work" "$work/missing.pgm" > "$work/missing.log" 2>&1
[ $? -eq 2 ] && grep -q "missing.pgm: cannot open it" "$work/missing.log" || fail "missing file not refused"

[ $status -eq 0 ] && echo "lumdemo: valid 8-bit and 16-bit images shown, 15 bad files refused"
exit $status
