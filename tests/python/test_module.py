"""The Python module against the command: for a sample of every function,
the document equals what the same verb prints with --json; errors raise the
documented classes, whatever the input."""
import json
import os
import pathlib
import subprocess

import pytest

import moxdev

CLI = os.environ["MOXDEV_CLI"]
SOURCE = pathlib.Path(os.environ["MOXDEV_SOURCE_DIR"])
SFDP = SOURCE / "data" / "sfdp" / "example.hexdump"


def command(*args):
    done = subprocess.run([CLI, *args, "--json"], capture_output=True, text=True, check=True)
    return json.loads(done.stdout)


@pytest.mark.parametrize(
    "call, args",
    [
        (lambda: moxdev.flash.identify("EF 40 18"), ["flash", "identify", "EF", "40", "18"]),
        (lambda: moxdev.flash.identify(b"\x20\xba\x19"), ["flash", "identify", "20", "BA", "19"]),
        (lambda: moxdev.flash.identify([0x1F, 0x60]), ["flash", "identify", "1F", "60"]),
        (lambda: moxdev.flash.identify("14", silicon_id=True), ["flash", "identify", "--silicon-id", "14"]),
        (lambda: moxdev.flash.identify("EF 40 99", sfdp=SFDP), ["flash", "identify", "EF", "40", "99", "--sfdp", str(SFDP)]),
        (lambda: moxdev.flash.show("W25Q128.V"), ["flash", "show", "W25Q128.V"]),
        (lambda: moxdev.flash.list(maker="WINBOND", size="128M"), ["flash", "list", "--maker", "WINBOND", "--size", "128M"]),
        (lambda: moxdev.flash.list("W25Q*", voltage="1.8", all=True), ["flash", "list", "W25Q*", "--voltage", "1.8", "--all"]),
        (lambda: moxdev.flash.list(maker="pmc", size="1G"), ["flash", "list", "--maker", "pmc", "--size", "1G"]),
        (lambda: moxdev.flash.sfdp(SFDP.read_bytes(), id="EF 40 99"), ["flash", "sfdp", str(SFDP), "--id", "EF 40 99"]),
        (lambda: moxdev.flash.sfdp(str(SFDP)), ["flash", "sfdp", str(SFDP)]),
        (lambda: moxdev.device.show("kxb100f484c6"), ["device", "show", "kxb100f484c6"]),
        (lambda: moxdev.device.show("KXB100M"), ["device", "show", "KXB100M"]),
        (lambda: moxdev.name("kxb120f484i7"), ["name", "kxb120f484i7"]),
        (lambda: moxdev.opn("KXB120F484I7"), ["opn", "KXB120F484I7"]),
        (lambda: moxdev.hps.list("spi"), ["hps", "list", "spi"]),
        (lambda: moxdev.hps.list("NAND"), ["hps", "list", "NAND"]),
    ],
)
def test_documents_equal_the_commands(call, args):
    assert call() == command(*args)


def test_errors_are_the_built_in_kinds_with_the_commands_words():
    with pytest.raises(LookupError) as found:
        moxdev.flash.show("W25Q128XY")
    assert isinstance(found.value, moxdev.NotFoundError)
    assert "W25Q128JV" in found.value.suggestions
    done = subprocess.run([CLI, "flash", "show", "W25Q128XY"], capture_output=True, text=True)
    assert done.returncode == 1 and done.stderr == f"moxdev: {found.value}\n"

    with pytest.raises(moxdev.NotFoundError, match="no known flash matches"):
        moxdev.flash.identify("AA BB CC")
    with pytest.raises(ValueError):
        moxdev.flash.identify("EF 4G 18")
    with pytest.raises(ValueError):
        moxdev.flash.identify([0x1EF])
    with pytest.raises(ValueError):
        moxdev.flash.list(size="huge")
    with pytest.raises(ValueError):
        moxdev.hps.list("emmc")
    with pytest.raises(LookupError):
        moxdev.device.show("nosuchdevice")
    with pytest.raises(OSError):
        moxdev.flash.sfdp("/nonexistent/read.bin")
    with pytest.raises(moxdev.Error):
        moxdev.flash.sfdp(b"not an SFDP read")


def test_hostile_input_raises_and_never_crashes():
    for junk in ["", " ", "\x00", "\xff" * 5000, "0x", "::", "E" * 100000]:
        for call in (moxdev.flash.identify, moxdev.flash.show, moxdev.device.show, moxdev.name, moxdev.opn):
            try:
                call(junk)
            except moxdev.Error:
                pass
    for junk in [b"", b"SFDP", b"SFDP" + bytes(range(256)) * 4, bytes(70000)]:
        with pytest.raises(moxdev.Error):
            moxdev.flash.sfdp(junk)


def test_a_damaged_database_is_an_internal_error(tmp_path, monkeypatch):
    programmer = tmp_path / "programmer"
    programmer.mkdir()
    (programmer / "mox_flash.pcf").write_bytes(b"\x00" * 64)
    monkeypatch.setenv("MOXDEV_DEVICE_DB_DIR", str(tmp_path))
    moxdev.reload()
    try:
        with pytest.raises(moxdev.InternalError) as damaged:
            moxdev.flash.identify("EF 40 18")
        assert damaged.value.condition and damaged.value.unit and damaged.value.line > 0
    finally:
        monkeypatch.delenv("MOXDEV_DEVICE_DB_DIR")
        moxdev.reload()
    assert moxdev.flash.identify("EF 40 18")["record"]["device_name"] == "W25Q128JV"


def test_the_environment_is_read_as_the_command_reads_it(monkeypatch):
    monkeypatch.setenv("MOX_ALLOW_QUAL_2GBIT", "1")
    moxdev.reload()
    try:
        assert moxdev.flash.identify("20 BA 22")["record"]["device_name"] == "MT25QL02G"
    finally:
        monkeypatch.delenv("MOX_ALLOW_QUAL_2GBIT")
        moxdev.reload()
    with pytest.raises(LookupError, match="MOX_ALLOW_QUAL_2GBIT"):
        moxdev.flash.identify("20 BA 22")


def test_the_habits_of_the_ecosystem():
    assert moxdev.__version__.count(".") == 2
    for function in (moxdev.flash.identify, moxdev.flash.show, moxdev.flash.list, moxdev.flash.sfdp,
                     moxdev.device.show, moxdev.name, moxdev.opn, moxdev.hps.list, moxdev.reload):
        assert function.__doc__ and len(function.__doc__) > 60, function.__name__
    stub = pathlib.Path(moxdev.__file__).with_name("moxdev.pyi")
    assert stub.is_file()
