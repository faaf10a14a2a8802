#!/usr/bin/python3
"""Brings the SPI flash chips of flashrom's list into data/flash/.

    scripts/flashrom_import.py [--write]

Reads data/flash/reference/flashrom-1.3.0-L.txt (the SPI rows of Debian's
`flashrom -L`, "vendor | device | status size bus") and data/flash/reference/flashrom-chips.csv (the facts of each
chip, from flashrom's chip tables, made by scripts/flashrom_chips.py), and for
each listed chip that data/mox_flash.csv does not find under flashrom's name:

- a record with the same Read-ID bytes and size gets the name as an `alias`;
- otherwise a new chip block is appended to its maker's file, with the facts
  the tables state, `times envelope` and `protect assumed` (no datasheet was
  read for it: a block that cites one replaces both by hand).

Without --write it prints what it would do. Chips left out, and why, go to
standard error. Run `cmake --build build --target update_flash_table` after.
"""
import csv
import re
import sys
from pathlib import Path

ROOT = Path(__file__).resolve().parent.parent
FLASH = ROOT / "data" / "flash"

# flashrom's vendor -> (maker name in the table, maker file, maker code).
MAKERS = {
    "AMIC": ("AMIC", "amic.txt"),
    "Atmel": ("ADESTO", "adesto.txt"),
    "Boya/BoHong Microelectronics": ("BOYA", "boya.txt"),
    "Eon": ("EON", "eon.txt"),
    "ESI": ("ESI", "esi.txt"),
    "ESMT": ("ESMT", "esmt.txt"),
    "Fudan": ("FUDAN", "fudan.txt"),
    "GigaDevice": ("GIGADEVICE", "gigadevice.txt"),
    "ISSI": ("ISSI", "issi.txt"),
    "Macronix": ("MACRONIX", "macronix.txt"),
    "Micron": ("MICRON", "micron.txt"),
    "Micron/Numonyx/ST": ("MICRON", "micron.txt"),
    "Nantronics": ("NANTRONICS", "nantronics.txt"),
    "PMC": ("PMC", "pmc.txt"),
    "Sanyo": ("SANYO", "sanyo.txt"),
    "Spansion": ("SPANSION", "spansion.txt"),
    "SST": ("SST", "sst.txt"),
    "Winbond": ("WINBOND", "winbond.txt"),
    "XMC": ("XMC", "xmc.txt"),
    "Zetta Device": ("ZETTA", "zetta.txt"),
}


def listed_chips():
    """(vendor, name, size in KiB) of each SPI row of `flashrom -L`."""
    rows = []
    for line in (FLASH / "reference" / "flashrom-1.3.0-L.txt").read_text().splitlines():
        if not line.strip() or line.startswith("#"):
            continue
        vendor, name, rest = (part.strip() for part in line.split(" | "))
        rows.append((vendor, name, int(rest.split()[-2])))
    return rows


def facts():
    """The chip tables' facts by name, and by its first word ("S25FL128S_UL
    Uniform 128 kB Sectors" is listed as S25FL128S_UL)."""
    chips = {}
    with open(FLASH / "reference" / "flashrom-chips.csv") as f:
        for row in csv.DictReader(f):
            chips.setdefault(row["name"], row)
            chips.setdefault(row["name"].split()[0], row)
    return chips


def table():
    """The records of data/mox_flash.csv: name, ID text, size in bits."""
    records = []
    with open(ROOT / "data" / "mox_flash.csv") as f:
        for i, cells in enumerate(csv.reader(f)):
            if i < 8:
                continue
            if cells[2] == "TRUE":
                ident = "silicon " + cells[3][2:]
            elif cells[6] == "255":  # a two-byte product ID: maker, model
                ident = f"{cells[7][2:]} {cells[3][2:]}"
            else:
                ident = f"{cells[7][2:]} {cells[5][2:]} {cells[3][2:]}"
            records.append({"name": cells[1], "id": ident, "bits": int(cells[19])})
    return records


def aliases():
    """The aliases the maker files give already, by alias (upper case)."""
    found = {}
    for path in FLASH.glob("*.txt"):
        chip = None
        for line in path.read_text().splitlines():
            words = line.split("#")[0].split()
            if len(words) == 2 and words[0] == "chip":
                chip = words[1]
            elif len(words) == 2 and words[0] == "alias":
                found[words[1].upper()] = chip
    return found


def size_text(bits):
    for unit, shift in (("G", 30), ("M", 20), ("K", 10)):
        if bits >= 1 << shift and bits % (1 << shift) == 0:
            return f"{bits >> shift}{unit}"
    return str(bits)


def voltage_text(millivolts):
    """The configuration voltage a chip's range includes: 3.3V where it reaches
    3.3 V, else 1.8V where it holds 1.8 V; "" when flashrom states none."""
    if not millivolts:
        return ""
    low, high = (int(v) for v in millivolts.split("-"))
    if low <= 3300 <= high:
        return "3.3V"
    if low <= 1800 <= high:
        return "1.8V"
    return ""


def main():
    write = "--write" in sys.argv[1:]
    chips = facts()
    records = table()
    known_aliases = aliases()
    by_name = {r["name"].upper(): r for r in records}
    new_blocks = {}    # file -> [text]
    new_aliases = {}   # record name -> [alias]
    left_out = []
    planned = {}       # ID text -> name of a block planned in this run
    for vendor, listed, size_kib in listed_chips():
        # "S25FL128S_UL Uniform 128 kB Sectors" is typed as its first word.
        name = listed.split()[0]
        # "/" separates alternatives, except inside parentheses: EN25Q32(A/B).
        alternatives = [a for a in re.split(r"/(?![^(]*\))", name) if a]
        if any(a.upper() in by_name or a.upper() in known_aliases for a in alternatives + [name]):
            continue
        fact = chips.get(listed) or chips.get(name)
        if fact is None:
            left_out.append((name, "not in the chip tables read"))
            continue
        if fact["probe"] == "SPI_AT45DB":
            left_out.append((name, "DataFlash: written through its SRAM buffers by a command set of its own"))
            continue
        # AT25F: Read Product ID (0x15) answers the maker code and one model byte.
        if fact["probe"] not in ("SPI_RDID", "SPI_RDID4", "SPI_BIG_SPANSION", "SPI_AT25F"):
            left_out.append((name, f"no Read-ID (probed by {fact['probe']})"))
            continue
        if vendor not in MAKERS:
            left_out.append((name, f"no maker file for {vendor}"))
            continue
        id_bytes = fact["id"].split()
        if len(id_bytes) == 4:  # a continuation code first: the chip sends these three first
            id_bytes = id_bytes[:3]
        ident = " ".join(id_bytes)
        bits = int(fact["size_bytes"]) * 8
        sector = int(fact["sector_bytes"] or 0)
        if fact["write"].startswith("NA"):
            left_out.append((name, "a mask ROM (flashrom writes nothing to it)"))
            continue
        if sector == 0:
            left_out.append((name, "no uniform erase block but the whole chip (boot-block sectors)"))
            continue
        same = [r for r in records if r["id"] == ident and r["bits"] == bits]
        if same:
            new_aliases.setdefault(same[0]["name"], []).append(name)
            continue
        if ident in planned and planned[ident][1] == bits:
            new_aliases.setdefault(planned[ident][0], []).append(name)
            continue
        voltage = voltage_text(fact["voltage_mv"])
        if not voltage:
            left_out.append((name, "flashrom's table states no voltage"))
            continue
        if bits & (bits - 1) or sector & (sector - 1):
            left_out.append((name, "a size or erase block that is no power of two (DataFlash pages)"))
            continue
        if bits > 2 << 30:
            left_out.append((name, "larger than the 2 Gbit a record holds"))
            continue
        maker, file = MAKERS[vendor]
        own = alternatives[0]
        planned[ident] = (own.upper(), bits)
        block = [f"chip {own}"]
        if own != name:
            block.append(f"  alias             {name}")
        for other in alternatives[1:]:
            block.append(f"  alias             {other}")
        block += [
            f"  id                {' '.join(id_bytes[1:])}",
            f"  size              {size_text(bits)}",
            f"  sector            {size_text(sector)}",
            f"  voltage           {voltage}",
        ]
        if fact["write"] == "SPI_WRITE_AAI":
            block.append("  aai               yes")
        block += [
            "  datasheet         none",
            f"  facts             {fact['source']}: ID {fact['id']}, {fact['size_bytes']} bytes, "
            f"{fact['sector_bytes']}-byte erase block, {fact['voltage_mv']} mV",
        ]
        new_blocks.setdefault((maker, file, id_bytes[0]), []).append("\n".join(block))

    for (maker, file, code), blocks in sorted(new_blocks.items()):
        path = FLASH / file
        header = "" if path.exists() else (
            f"# {maker} serial NOR flash. Chips below the flashrom family are known from flashrom's chip\n"
            "# tables (IDs, sizes, erase blocks, voltage); no datasheet was read for them.\n"
            "#\n# Format: README.md beside this file.\n")
        # A file that ends in this maker's flashrom family takes the chips into it.
        if path.exists() and ends_in_flashrom_family(path.read_text(), f"maker {maker} 0x{code}"):
            text = "\n" + "\n\n".join(blocks) + "\n"
        else:
            text = header + (
                f"\nmaker {maker} 0x{code}\n\n"
                "# Known from flashrom's chip tables; no datasheet was read: the maxima are the\n"
                "# envelope and the block-protect bits those the SFDP derivation assumes.\n"
                "family flashrom\n  protect           assumed\n  times             envelope\n\n"
                + "\n\n".join(blocks) + "\n")
        print(f"{file}: {len(blocks)} new chips")
        if write:
            with open(path, "a") as f:
                f.write(text)
    for record, names in sorted(new_aliases.items()):
        print(f"alias {record}: {', '.join(names)}")
        if write:
            add_aliases(record, names)
    for name, why in left_out:
        print(f"left out {name}: {why}", file=sys.stderr)
    if write:
        index = (FLASH / "index.txt").read_text()
        for (_, file, _) in new_blocks:
            if file not in index.split():
                index += file + "\n"
        (FLASH / "index.txt").write_text(index)


def ends_in_flashrom_family(text, maker_line):
    """Whether the last maker of `text` is `maker_line` and its last family flashrom."""
    lines = [line.split("#")[0].strip() for line in text.splitlines()]
    makers = [line for line in lines if line.startswith("maker ")]
    families = [line for line in lines if line.startswith("family ")]
    return bool(makers) and " ".join(makers[-1].split()) == maker_line and families[-1:] == ["family flashrom"]


def add_aliases(record, names):
    """Adds alias lines after the first chip line of `record`."""
    for path in sorted(FLASH.glob("*.txt")):
        lines = path.read_text().splitlines()
        for i, line in enumerate(lines):
            words = line.split("#")[0].split()
            if len(words) == 2 and words[0] == "chip" and words[1].upper() == record:
                lines[i + 1:i + 1] = [f"  alias             {name}" for name in names]
                path.write_text("\n".join(lines) + "\n")
                return
    raise SystemExit(f"no chip block for {record}")


if __name__ == "__main__":
    main()
