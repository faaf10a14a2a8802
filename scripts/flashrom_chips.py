#!/usr/bin/python3
"""Lists the SPI flash chips of flashrom's chip tables as facts for data/flash/.

    scripts/flashrom_chips.py FLASHROM_GIT_DIR [COMMIT] > data/flash/reference/flashrom-chips.csv

(data/flash/reference/flashrom-chips.csv is made from the tag v1.3.0, the
version Debian 12 ships, whose names `flashrom -L` prints.)

Reads flashchips/*.c and include/flashchips.h of a flashrom checkout (a bare
git directory is enough: the files are read with `git show`) and writes one
CSV line per SPI chip: maker, name, how it is probed, the Read-ID bytes it
returns, its size, its uniform erase block, page size, voltage range and
write method. Only facts the tables state are written; nothing is inferred
but the ID bytes, which are the manufacturer code followed by the model
code, as the chip sends them.
"""
import csv
import re
import subprocess
import sys


def show(git_dir, commit, path):
    return subprocess.run(["git", "-C", git_dir, "show", f"{commit}:{path}"], check=True,
                          capture_output=True, text=True).stdout


def macros(header):
    values = {}
    for name, value in re.findall(r"#define\s+(\w+)\s+(0x[0-9A-Fa-f]+|\d+)", header):
        values[name] = int(value, 0)
    return values


def field(entry, name):
    match = re.search(r"\." + name + r"\s*=\s*([^,\n]+(?:\{[^}]*\})?)", entry)
    return match.group(1).strip() if match else ""


def number(text, defines):
    text = text.strip()
    if text in defines:
        return defines[text]
    try:
        return int(eval(text, {"__builtins__": {}}, {}))  # sizes such as "64 * 1024"
    except Exception:
        return None


def erase_blocks(entry, defines):
    """(block size, count, opcode) for each eraser with one uniform block size."""
    erasers = []
    for blocks, opcode in re.findall(r"\.eraseblocks\s*=\s*\{(.*?)\}\s*,\s*\.block_erase\s*=\s*(\w+)",
                                     entry, re.S):
        sizes = re.findall(r"\{\s*([^,{}]+?)\s*,\s*([^,{}]+?)\s*\}", blocks)
        if len(sizes) == 1:
            size, count = number(sizes[0][0], defines), number(sizes[0][1], defines)
            if size and count:
                erasers.append((size, count, opcode))
    return erasers


def main():
    git_dir = sys.argv[1]
    commit = sys.argv[2] if len(sys.argv) > 2 else "HEAD"
    # Newer trees keep one file per maker under flashchips/ and the codes in
    # include/; older ones (1.3.0, as Debian 12 ships it) one flashchips.c.
    tree = subprocess.run(["git", "-C", git_dir, "ls-tree", "-r", "--name-only", commit], check=True,
                          capture_output=True, text=True).stdout.split()
    header = "include/flashchips.h" if "include/flashchips.h" in tree else "flashchips.h"
    defines = macros(show(git_dir, commit, header))
    files = [path for path in tree if path.startswith("flashchips/") and path.endswith(".c")] or ["flashchips.c"]
    out = csv.writer(sys.stdout, lineterminator="\n")
    out.writerow(["maker", "name", "probe", "id", "size_bytes", "sector_bytes", "page_bytes", "voltage_mv",
                  "write", "source"])
    revision = subprocess.run(["git", "-C", git_dir, "rev-parse", "--short", commit], check=True,
                              capture_output=True, text=True).stdout.strip()
    for path in sorted(files):
        text = show(git_dir, commit, path)
        # The table itself: from its opening brace to its end.
        table = re.search(r"const struct flashchip flashchips\[\]\s*=\s*\{", text)
        if table:
            text = text[table.end():]
        # Each chip is one brace-initialised entry at the outer level.
        depth, start = 0, None
        for i, c in enumerate(text):
            if c == "{":
                if depth == 0:
                    start = i
                depth += 1
            elif c == "}":
                depth -= 1
                if depth == 0 and start is not None:
                    entry = text[start:i + 1]
                    if "BUS_SPI" in field(entry, "bustype"):
                        row(out, entry, defines, f"flashrom {path} ({revision})")
                    start = None


def row(out, entry, defines, source):
    name = field(entry, "name").strip('"')
    maker = field(entry, "vendor").strip('"')
    probe_match = re.search(r"\.probe\s*=\s*(PROBE_\w+)", entry)  # not the .tested = {.probe = OK} status
    probe = probe_match.group(1) if probe_match else ""
    mfr = number(field(entry, "manufacture_id"), defines)
    model = number(field(entry, "model_id"), defines)
    size = number(field(entry, "total_size"), defines)
    page = number(field(entry, "page_size"), defines)
    voltage = re.search(r"\.voltage\s*=\s*\{\s*(\d+)\s*,\s*(\d+)\s*\}", entry)
    write = field(entry, "write")
    ident = ""
    if probe in ("PROBE_SPI_RDID", "PROBE_SPI_RDID4", "PROBE_SPI_BIG_SPANSION") and mfr is not None and model is not None:
        # The manufacturer code as sent (0x7F continuation first), then
        # the model code's first two bytes (a longer code goes on after them).
        # After a continuation code a three-byte read has room for one model
        # byte only: flashrom then keeps the third byte as the model code.
        while model > 0xFFFF:
            model >>= 8
        if mfr > 0xFF and probe == "PROBE_SPI_RDID":
            id_bytes = [mfr >> 8, mfr & 0xFF, model & 0xFF]
        else:
            id_bytes = ([mfr >> 8] if mfr > 0xFF else []) + [mfr & 0xFF, (model >> 8) & 0xFF, model & 0xFF]
        ident = " ".join(f"{b:02X}" for b in id_bytes)
    elif probe == "PROBE_SPI_AT25F" and mfr is not None and model is not None:
        # Read Product ID (0x15) answers the manufacturer code and one model byte.
        ident = f"{mfr & 0xFF:02X} {model & 0xFF:02X}"
    elif mfr is not None and model is not None:
        ident = f"{mfr & 0xFF:02X} {model & 0xFFFF:04X}"
    total = size * 1024 if size else 0
    uniform = [(s, c, op) for s, c, op in erase_blocks(entry, defines) if s * c == total and s < total]
    sector = max((s for s, c, op in uniform if op == "SPI_BLOCK_ERASE_D8"), default=0) or \
        max((s for s, c, op in uniform), default=0)
    out.writerow([maker, name, probe.replace("PROBE_", ""), ident, total, sector, page or "",
                  f"{voltage.group(1)}-{voltage.group(2)}" if voltage else "", write, source])


if __name__ == "__main__":
    main()
