#!/usr/bin/env bash
# Writes the seed corpus of every fuzz target from the built-in data into
# OUT_DIR/<target>/ (one directory per target, named like fuzz/<target>.cpp).
#   fuzz/make_seeds.sh BUILD_DIR OUT_DIR
# BUILD_DIR is a fuzz build (scripts/build.sh --fuzz): its seed maker, its
# moxdev command and its share/moxdev data are used.
set -euo pipefail
cd "$(dirname "$0")/.."

[ $# -eq 2 ] || { echo "usage: $0 BUILD_DIR OUT_DIR" >&2; exit 1; }
build=$(cd "$1" && pwd)
out=$2
moxdev=$build/bin/moxdev
mkdir -p "$out"
out=$(cd "$out" && pwd)
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT

# Database payloads and files, cut-down naming images.
"$build/fuzz/fuzz_seed_maker" "$build/share/moxdev" "$out"

# The two tables, whole and cut down to a few records.
mkdir -p "$out/device_csv" "$out/flash_csv"
cp data/mox_dev_info.csv "$out/device_csv/table.csv"
cp data/mox_flash.csv "$out/flash_csv/table.csv"
head -n 12 data/mox_flash.csv > "$out/flash_csv/short.csv"

# Slices of the part list: its header and first parts, and parts further on.
mkdir -p "$out/part_list"
head -n 40 data/h/mox_parts.txt > "$out/part_list/head.txt"
sed -n '5000,5030p;12000,12030p' data/h/mox_parts.txt > "$out/part_list/middle.txt"

# Where the maxima come from: the head of the generated file, sibling lines.
mkdir -p "$out/flash_sources"
sources=$build/share/moxdev/programmer/mox_flash_sources.txt
head -n 12 "$sources" > "$out/flash_sources/head.txt"
grep -m 8 -P '\tsibling\t' "$sources" > "$out/flash_sources/siblings.txt"

# A user flash value made by the dialogue, in the three input forms of the
# target: the value ("0"), its decoded text ("1"), the bare definition ("2").
mkdir -p "$out/user_flash_value"
answers=(2 acme chip1 19 2 BA 1 20 0 n y n n n y 1 256 64 400 3 1800 5C 5C 0 4 5 y 3.3v
         velmar fuzz2 14 0 0 -1 1 1 y n y n y n 2 2048 4 900 60 1000000 FF 0 1 -1 -1 n 1.8v)
printf '%s\n' "${answers[@]}" | "$moxdev" flash define > "$scratch/define.txt"
value=$(sed -n 's/^Value: //p' "$scratch/define.txt")
raw=$("$moxdev" flash decode "$value" | sed -n 's/^decoded: //p')
[ -n "$value" ] && [ -n "$raw" ] || { echo "$0: moxdev flash define gave no value" >&2; exit 1; }
printf '0%s' "$value" > "$out/user_flash_value/value"
printf '1%s' "$raw" > "$out/user_flash_value/decoded"
printf '2%s' "${raw%%#*}" > "$out/user_flash_value/definition"

# User parameter files made by the command: one NAND part, then an SPI part too.
mkdir -p "$out/user_parameter_file" "$scratch/module"
printf '%s\n' 2C DA 256 > "$scratch/nand.txt"
printf '%s\n' C22018 FFFFFF 0 0 MACRONIX QSPI_128 128 64 256 80 3 1 1500 1 1 Y DC 12 13 > "$scratch/spi.txt"
MOXDEV_MODULE_DIR=$scratch/module "$moxdev" hps add nand --input "$scratch/nand.txt" > /dev/null
cp "$scratch/module/mox_flash.ini" "$out/user_parameter_file/nand.ini"
MOXDEV_MODULE_DIR=$scratch/module "$moxdev" hps add spi --input "$scratch/spi.txt" > /dev/null
cp "$scratch/module/mox_flash.ini" "$out/user_parameter_file/nand_spi.ini"

# User parts field by field: a NAND part, an SPI part (text lengths first),
# and an SPI part whose maker holds a NUL (the packing refuses it).
mkdir -p "$out/user_records"
printf '\002\054\000\000\000\332\000\000\000\000\000\000\020\000\000\000\000' > "$out/user_records/nand"
printf '\003\030\040\302\000\377\377\377\000\000\000\000\000\000\000\000\000\010MACRONIX\010QSPI_128' > "$out/user_records/spi"
printf '\001\030\040\302\000\377\377\377\000\000\000\000\000\000\000\000\000\003M\000X' > "$out/user_records/nul"

# Answers to the validating parse: the arguments come from the input's end.
mkdir -p "$out/validating_parse"
printf '0x1000\001\002\003\004\005\006\007\010' > "$out/validating_parse/hex"
printf '%s' '-1' > "$out/validating_parse/minus_one"
printf '2048\377\377\377\377\000\000\001\000\004\000\000\000\002\000' > "$out/validating_parse/ranges"

# SFDP reads: the datasheet listings and dumps as text (mode 1), and their
# bytes (mode 0).
mkdir -p "$out/sfdp"
for file in data/sfdp/*.txt data/sfdp/*.hexdump; do
  { printf '\001'; cat "$file"; } > "$out/sfdp/text-$(basename "$file")"
done
{ printf '\000'; grep -v '^#' data/sfdp/W25Q64FV.txt | cut -d: -f2 | xxd -r -p 2>/dev/null || true; } > "$out/sfdp/binary"

# Queries of the verbs' documents: the first byte picks the query.
mkdir -p "$out/documents"
printf '\000EF 40 18' > "$out/documents/identify"
printf '\001 14' > "$out/documents/silicon"
printf '\002W25Q128.V' > "$out/documents/show"
printf '\003W25Q*winbond' > "$out/documents/list"
printf '\004128M3.3V' > "$out/documents/sizes"
printf '\005kxb100f484c6' > "$out/documents/device"
printf '\006KXB120F484' > "$out/documents/name"
printf '\0070x1234' > "$out/documents/opn"
printf '\010spi' > "$out/documents/hps"

# Hand-made seeds kept in the repository.
if [ -d fuzz/seeds ]; then
  for dir in fuzz/seeds/*/; do
    target=$(basename "$dir")
    mkdir -p "$out/$target"
    cp "$dir"* "$out/$target/" 2>/dev/null || true
  done
fi
echo "$out"

