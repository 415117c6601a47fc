#!/bin/sh
# check_abi.sh LIBRARY INCLUDE_DIR REFERENCE_DUMP REPORT
# Dumps the interface of LIBRARY (built with -g) as declared by the headers
# in INCLUDE_DIR, and compares it with the committed REFERENCE_DUMP: any
# change that breaks programs built against the reference, in binary or in
# source, fails. So does an interface that only grew, until the reference is
# renewed with scripts/abi-renew.sh: the reference always describes what
# ships.
set -u
lib=$1 include=$2 reference=$3 report=$4
for tool in abi-dumper abi-compliance-checker perl; do
  command -v $tool > /dev/null || { echo "$tool is missing: run scripts/setup.sh abi"; exit 1; }
done
[ -f "$reference" ] || { echo "no reference dump $reference: run scripts/abi-renew.sh"; exit 1; }
work=$(mktemp -d); trap 'rm -rf "$work"' EXIT
if ! abi-dumper "$lib" -o "$work/current.dump" -lver current -public-headers "$include" \
    > "$work/dumper.log" 2>&1; then
  cat "$work/dumper.log"; echo "abi-dumper could not dump $lib (built without -g?)"; exit 1
fi
abi-compliance-checker -l lum -old "$reference" -new "$work/current.dump" -bin -src \
    -report-path "$report" > "$work/checker.log" 2>&1
checker=$?
grep -E '^(Binary|Source) compatibility|^Total' "$work/checker.log"
if [ $checker -ne 0 ]; then
  echo "the interface of $lib is incompatible with $reference (checker status $checker);"
  echo "what changed, symbol by symbol: $report"
  exit 1
fi
# The exported names in a dump, one a line.
symbols() { perl -MFile::Spec -e 'our $VAR1; my $f = File::Spec->rel2abs($ARGV[0]);
  do $f or die "cannot read $f\n"; my @libs = values %{$VAR1->{Symbols}};
  @libs or die "no symbols in $f\n"; for my $lib (@libs) { print "$_\n" for keys %$lib }' "$1" > "$2" &&
  sort -o "$2" "$2"; }
symbols "$reference" "$work/reference.names" && symbols "$work/current.dump" "$work/current.names" || exit 1
added=$(comm -13 "$work/reference.names" "$work/current.names")
if [ -n "$added" ]; then
  echo "the interface grew by:" $added
  echo "if that is deliberate, run scripts/abi-renew.sh and commit $reference"
  exit 1
fi
echo "$(wc -l < "$work/current.names") symbols, compatible with the reference dump"
