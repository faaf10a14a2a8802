// The Python module `moxdev`: the documents the command prints with --json,
// as plain dicts and lists, from the same renderers (moxdev/documents.h).
//
// The databases are read once per process, on the first question that needs
// them, with the environment as it is then; `moxdev.reload()` reads them
// again (after a change of MOXDEV_DEVICE_DB_DIR or a MOX_ALLOW_ switch).
#include "moxdev/documents.h"
#include "moxdev/dump_text.h"
#include "moxdev/files.h"
#include "moxdev/flash_documents.h"
#include "moxdev/hps_documents.h"
#include "moxdev/moxdev_sfdp.h"
#include "moxdev/naming_documents.h"

#include "host/msg.h"

#include <pybind11/eval.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <memory>
#include <string>
#include <vector>

namespace py = pybind11;

namespace {

// The error classes, defined in Python so that each derives from the
// built-in a caller already catches: a name that names nothing is a
// LookupError, malformed input a ValueError, an unreadable file an OSError.
const char* const ERROR_CLASSES = R"(
class Error(Exception):
    """Base of the errors moxdev raises."""


class NotFoundError(Error, LookupError):
    """A well-formed name, ID or filter that names nothing known.

    `suggestions` holds the known names closest to what was given, as the
    command offers them ("did you mean ...").
    """

    def __init__(self, message, suggestions=()):
        super().__init__(message)
        self.suggestions = list(suggestions)


class InvalidInputError(Error, ValueError):
    """Input that is not of the form asked for (not hex bytes, not a size...)."""


class UnavailableError(Error, OSError):
    """A database or file the question needs cannot be read."""


class InternalError(Error):
    """A damaged database or build product: the library's own check failed.

    `condition` is the check that failed, `module`, `unit` and `line` where.
    """

    def __init__(self, message, condition, module, unit, line):
        super().__init__(message)
        self.condition = condition
        self.module = module
        self.unit = unit
        self.line = line
)";

// A document as Python objects: objects keep their key order (dicts are
// ordered), texts that are not UTF-8 (names read from files) get U+FFFD as
// the command's output does. pybind11_json takes only nlohmann::json, whose
// objects sort their keys, so the conversion is written here.
py::object to_python(const moxdev::DOCUMENT& value)
{
    using TYPE = moxdev::DOCUMENT::value_t;
    switch (value.type()) {
    case TYPE::boolean: return py::bool_(value.get<bool>());
    case TYPE::number_integer: return py::int_(value.get<std::int64_t>());
    case TYPE::number_unsigned: return py::int_(value.get<std::uint64_t>());
    case TYPE::number_float: return py::float_(value.get<double>());
    case TYPE::string: {
        const std::string& text = value.get_ref<const std::string&>();
        PyObject* decoded = PyUnicode_DecodeUTF8(text.data(), Py_ssize_t(text.size()), "replace");
        if (decoded == nullptr)
            throw py::error_already_set();
        return py::reinterpret_steal<py::object>(decoded);
    }
    case TYPE::array: {
        py::list list;
        for (const moxdev::DOCUMENT& item : value)
            list.append(to_python(item));
        return std::move(list);
    }
    case TYPE::object: {
        py::dict dict;
        for (const auto& [key, item] : value.items())
            dict[py::str(key)] = to_python(item);
        return std::move(dict);
    }
    case TYPE::binary: {
        const auto& bytes = value.get_binary();
        return py::bytes(reinterpret_cast<const char*>(bytes.data()), bytes.size());
    }
    case TYPE::null:
    case TYPE::discarded: break;
    }
    return py::none();
}

// What a query tells a person beside its answer: warnings become Python
// warnings, the other notes (a name resolved to another) go to the "moxdev"
// logger at INFO.
void note(const std::string& text)
{
    static const std::string WARNING = "warning: ";
    if (text.compare(0, WARNING.size(), WARNING) == 0) {
        if (PyErr_WarnEx(PyExc_UserWarning, text.substr(WARNING.size()).c_str(), 2) != 0)
            throw py::error_already_set(); // warnings turned into errors
        return;
    }
    py::module_::import("logging").attr("getLogger")("moxdev").attr("info")(text);
}

// The process's document makers, made on first use.
struct SESSION {
    std::unique_ptr<moxdev::FLASH_DOCUMENTS> flash;
    std::unique_ptr<moxdev::NAMING_DOCUMENTS> naming;
};

SESSION& session()
{
    // Deliberately never destroyed: the interpreter may tear the module down
    // in any order at exit, and the managers hold nothing that needs closing.
    static SESSION* const instance = new SESSION;
    return *instance;
}

moxdev::FLASH_DOCUMENTS& flash_documents()
{
    SESSION& s = session();
    if (!s.flash)
        s.flash = std::make_unique<moxdev::FLASH_DOCUMENTS>(note);
    return *s.flash;
}

moxdev::NAMING_DOCUMENTS& naming_documents()
{
    SESSION& s = session();
    if (!s.naming)
        s.naming = std::make_unique<moxdev::NAMING_DOCUMENTS>(note);
    return *s.naming;
}

[[noreturn]] void invalid(const std::string& message)
{
    throw moxdev::QUERY_ERROR(moxdev::QUERY_FAILURE::INVALID_INPUT, message);
}

bool is_bytes(const py::handle& object)
{
    return py::isinstance<py::bytes>(object) || py::isinstance<py::bytearray>(object);
}

// The contents of a bytes or bytearray object.
std::string bytes_text(const py::handle& object)
{
    return py::isinstance<py::bytes>(object) ? std::string(object.cast<py::bytes>())
                                             : std::string(object.cast<py::bytearray>());
}

// ID bytes as a script has them: a text as the command reads it ("EF 40 18",
// "EF4018", "0xEF,0x40,0x18"), bytes as read from the hardware, or a
// sequence of numbers 0 to 255.
std::vector<BYTE> id_bytes(const py::handle& id)
{
    if (py::isinstance<py::str>(id))
        return moxdev::parse_id_bytes({id.cast<std::string>()});
    if (is_bytes(id)) {
        const std::string raw = bytes_text(id);
        return std::vector<BYTE>(raw.begin(), raw.end());
    }
    if (py::isinstance<py::sequence>(id)) {
        std::vector<BYTE> bytes;
        for (const py::handle item : id.cast<py::sequence>()) {
            if (!py::isinstance<py::int_>(item) || item.cast<long long>() < 0 || item.cast<long long>() > 255)
                invalid("ID bytes must be numbers from 0 to 255");
            bytes.push_back(BYTE(item.cast<int>()));
        }
        if (bytes.empty())
            invalid("no ID bytes were given (e.g. EF 40 18)");
        return bytes;
    }
    invalid("ID bytes are a text (\"EF 40 18\"), bytes or a sequence of numbers");
}

// An SFDP read: bytes (the raw read, or a text dump of it), or a path (str or
// os.PathLike) to a file holding either.
std::vector<BYTE> sfdp_bytes(const py::handle& read)
{
    if (is_bytes(read))
        return moxdev::read_sfdp_dump(bytes_text(read), "the SFDP read");
    return moxdev::read_sfdp_file(py::module_::import("os").attr("fspath")(read).cast<std::string>());
}

std::string text_or_empty(const py::object& text)
{
    return text.is_none() ? std::string() : text.cast<std::string>();
}

void translate_errors(std::exception_ptr error)
{
    const py::module_ module = py::module_::import("moxdev");
    try {
        std::rethrow_exception(error);
    } catch (const moxdev::QUERY_ERROR& e) {
        py::object type;
        py::object instance;
        switch (e.kind()) {
        case moxdev::QUERY_FAILURE::NOT_FOUND:
            type = module.attr("NotFoundError");
            instance = type(e.what(), py::cast(e.suggestions()));
            break;
        case moxdev::QUERY_FAILURE::INVALID_INPUT:
            type = module.attr("InvalidInputError");
            instance = type(e.what());
            break;
        case moxdev::QUERY_FAILURE::UNAVAILABLE:
            type = module.attr("UnavailableError");
            instance = type(e.what());
            break;
        }
        PyErr_SetObject(type.ptr(), instance.ptr());
    } catch (const MSG_INTERNAL_ERROR& e) {
        const py::object type = module.attr("InternalError");
        const py::object instance = type(e.what(), e.condition(), e.module(), e.unit(), e.line());
        PyErr_SetObject(type.ptr(), instance.ptr());
    }
}

// moxdev.flash: the flash verbs.
void define_flash(py::module_& flash)
{
    flash.def(
        "identify",
        [](const py::object& id, bool silicon_id, const py::object& sfdp) {
            const std::vector<BYTE> bytes = id_bytes(id);
            if (sfdp.is_none())
                return to_python(flash_documents().identify(bytes, silicon_id));
            const std::vector<BYTE> read = sfdp_bytes(sfdp);
            return to_python(flash_documents().identify(bytes, silicon_id, &read));
        },
        py::arg("id"), py::kw_only(), py::arg("silicon_id") = false, py::arg("sfdp") = py::none(),
        "The flash record a chip with these ID bytes binds, as `moxdev flash identify BYTES --json`.\n\n"
        "`id` is a text ('EF 40 18', 'EF4018'), bytes as read from the hardware (b'\\xef\\x40\\x18') or a "
        "sequence of numbers. With `silicon_id` the one-byte silicon ID is matched. `sfdp` is the chip's SFDP "
        "read (bytes, or a path to a binary or text dump): a chip the table does not know is bound to the "
        "record derived from it.\n\n"
        "Raises NotFoundError (with the command's hints) when no usable record matches, InvalidInputError "
        "for bytes that are not hex.");
    flash.def(
        "show", [](const std::string& name) { return to_python(flash_documents().show(name)); }, py::arg("name"),
        "Every record (ID variant) of one chip, as `moxdev flash show NAME --json`: a list of documents. "
        "The chip's own name, an alias other tools give it (W25Q128.V) or a part of a slash name finds it; "
        "letter case is ignored.\n\nRaises NotFoundError, with suggestions, for an unknown name.");
    flash.def(
        "list",
        [](const py::object& pattern, const py::object& maker, const py::object& size, const py::object& voltage,
           bool every_record) {
            moxdev::FLASH_LIST_FILTER filter;
            filter.pattern = text_or_empty(pattern);
            filter.maker = text_or_empty(maker);
            filter.size = text_or_empty(size);
            filter.voltage = text_or_empty(voltage);
            filter.every_record = every_record;
            return to_python(flash_documents().list(filter));
        },
        py::arg("pattern") = py::none(), py::kw_only(), py::arg("maker") = py::none(), py::arg("size") = py::none(),
        py::arg("voltage") = py::none(), py::arg("all") = false,
        "The usable flash records, as `moxdev flash list [PATTERN] --json` with the same filters: `pattern` "
        "with * and ? wildcards, `maker` ('winbond'), `size` ('128M' bits, '16MB' bytes), `voltage` ('1.8V'); "
        "`all` also lists the records whose MOX_ALLOW_ switch is off.\n\n"
        "Filters that keep nothing give an empty list; an unknown maker raises NotFoundError, a size or "
        "voltage that is not one raises InvalidInputError.");
    flash.def(
        "sfdp",
        [](const py::object& read, const py::object& id, const py::object& name) {
            const std::vector<BYTE> bytes = sfdp_bytes(read);
            return to_python(
                flash_documents().sfdp(bytes, id.is_none() ? std::vector<BYTE>() : id_bytes(id), text_or_empty(name)));
        },
        py::arg("read"), py::kw_only(), py::arg("id") = py::none(), py::arg("name") = py::none(),
        "A chip's SFDP read decoded, the flash record derived from it and, with the chip's Read-ID `id`, its "
        "comparison with the table's record, as `moxdev flash sfdp FILE --json`.\n\n"
        "`read` is bytes (the raw read or a text dump: hexdump -C, xxd, hex bytes) or a path to a file "
        "holding either; `name` names the derived record.");
}

} // namespace

PYBIND11_MODULE(moxdev, m)
{
    m.doc() = "The moxdev device-support library: flash chips by their ID bytes, names and SFDP reads, "
              "device records and names, ordering part numbers, HPS flash parts.\n\n"
              "Every function returns the document `moxdev ... --json` prints, as dicts and lists. "
              "Errors derive from moxdev.Error: NotFoundError (a LookupError), InvalidInputError (a "
              "ValueError), UnavailableError (an OSError), InternalError (a damaged database).";
    m.attr("__version__") = MOXDEV_VERSION_TEXT;
    py::exec(ERROR_CLASSES, m.attr("__dict__"));
    py::register_exception_translator(translate_errors);

    m.def(
        "reload",
        [] {
            session().flash.reset();
            session().naming.reset();
        },
        "Read the databases again on the next question, with the environment as it is then "
        "(MOXDEV_DEVICE_DB_DIR, MOXDEV_INSTALL_DIR, the MOX_ALLOW_ switches, MOX_SUPPORT_EXT_SPI_DEV).");
    m.def(
        "name", [](const std::string& name) { return to_python(naming_documents().name(name)); }, py::arg("name"),
        "Every form of a device name, as `moxdev name NAME --json`.\n\n"
        "  moxdev.name('kxb120f484i7')['full_ordering_name']\n\n"
        "Raises NotFoundError for a name no form of which is known.");
    m.def(
        "opn", [](const std::string& opn) { return to_python(naming_documents().opn(opn)); }, py::arg("opn"),
        "An ordering part number, its OPN enum and its OPN hash, as `moxdev opn OPN --json`; `opn` is any "
        "of the three (an enum in decimal, a hash as 0x...).");

    py::module_ flash = m.def_submodule("flash", "The serial flash database: chips by ID bytes, name or SFDP read.");
    define_flash(flash);

    py::module_ device = m.def_submodule("device", "The device information database.");
    device.def(
        "show", [](const std::string& name) { return to_python(naming_documents().device_show(name)); },
        py::arg("name"),
        "The record that serves a family, device or part, as `moxdev device show NAME --json` (letter case "
        "ignored; any form `moxdev.name` gives works).\n\nRaises NotFoundError, with suggestions.");

    py::module_ hps = m.def_submodule("hps", "The NAND and SPI flash parts an HPS boots from.");
    hps.def(
        "list", [](const std::string& kind) { return to_python(moxdev::hps_list_document(kind, note)); },
        py::arg("kind"),
        "The flash parts of `kind` ('nand' or 'spi'), the user's first, as `moxdev hps list KIND --json`.");
}
