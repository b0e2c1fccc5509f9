#include "RecordJson.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <initializer_list>
#include <iostream>
#include <limits>
#include <set>
#include <type_traits>

namespace ruxctl {

namespace {

[[noreturn]] void fail(const std::string& path, const std::string& what) {
    throw RecordError((path.empty() ? std::string("record") : path) + ": " + what);
}

template <typename T>
std::string fieldKind() {
    return std::string(std::is_signed<T>::value ? "a signed " : "an unsigned ") +
           std::to_string(8 * sizeof(T)) + "-bit field";
}

template <typename T>
T toInteger(const Json& v, const std::string& path) {
    using Limits = std::numeric_limits<T>;
    if (v.is_number_unsigned()) {
        const uint64_t u = v.get<uint64_t>();
        if (u <= static_cast<uint64_t>(Limits::max())) return static_cast<T>(u);
    } else if (v.is_number_integer()) {
        const int64_t i = v.get<int64_t>();
        if (i >= static_cast<int64_t>(Limits::min()) &&
            (i < 0 || static_cast<uint64_t>(i) <= static_cast<uint64_t>(Limits::max())))
            return static_cast<T>(i);
    } else {
        fail(path, "wants an integer, got " + v.dump());
    }
    fail(path, v.dump() + " does not fit " + fieldKind<T>());
}

// Records are zeroed, padding included, and then filled in place one scalar member at a
// time: copying a whole struct need not copy its padding, so a record's bytes would no
// longer depend on its fields alone.
template <typename T>
void zero(T* records, size_t count) {
    static_assert(std::is_trivially_copyable<T>::value, "C records only");
    if (count != 0) std::memset(static_cast<void*>(records), 0, count * sizeof(T));
}

template <typename T>
std::unique_ptr<T> zeroedRecord() {
    auto record = std::make_unique<T>();
    zero(record.get(), 1);
    return record;
}

const Json& emptyObject() {
    static const Json empty = Json::object();
    return empty;
}

const Json& emptyList() {
    static const Json empty = Json::array();
    return empty;
}

// The fields of one JSON object. Each accessor takes one field (null counts as left
// out); done() rejects the fields nobody took, so a misspelt name is an error rather
// than a silent 0.
class Fields {
public:
    Fields(const Json& json, std::string path) : mJson(json), mPath(std::move(path)) {
        if (!json.is_object()) fail(mPath, "wants an object, got " + json.dump());
    }

    std::string path(const std::string& key) const {
        return mPath.empty() ? key : mPath + "." + key;
    }
    // Whether any of `keys` is given; takes nothing.
    bool given(std::initializer_list<const char*> keys) const {
        for (const char* key : keys) {
            auto it = mJson.find(key);
            if (it != mJson.end() && !it->is_null()) return true;
        }
        return false;
    }
    const Json* take(const char* key) {
        mTaken.insert(key);
        auto it = mJson.find(key);
        return it == mJson.end() || it->is_null() ? nullptr : &*it;
    }

    template <typename T>
    T integer(const char* key, T absent = 0) {
        const Json* v = take(key);
        return v ? toInteger<T>(*v, path(key)) : absent;
    }
    // A flag: true/false or a number.
    template <typename T>
    T flag(const char* key, T absent = 0) {
        const Json* v = take(key);
        if (!v) return absent;
        if (v->is_boolean()) return v->get<bool>() ? 1 : 0;
        return toInteger<T>(*v, path(key));
    }
    bool boolean(const char* key) {
        const Json* v = take(key);
        if (!v) return false;
        if (v->is_boolean()) return v->get<bool>();
        const auto n = toInteger<int>(*v, path(key));
        if (n != 0 && n != 1) fail(path(key), "wants true, false, 0 or 1, got " + v->dump());
        return n == 1;
    }
    // An optional 32-bit value: RUX_VALUE_NOT_GIVEN when left out.
    uint32_t optional(const char* key) { return integer<uint32_t>(key, RUX_VALUE_NOT_GIVEN); }
    uint32_t optionalFlag(const char* key) { return flag<uint32_t>(key, RUX_VALUE_NOT_GIVEN); }

    template <typename E>
    E enumValue(const char* key, const EnumTable& table) {
        const Json* v = take(key);
        if (!v) return static_cast<E>(0);
        if (v->is_string()) {
            const auto text = v->get<std::string>();
            if (auto value = parseEnum(table, text)) return static_cast<E>(*value);
            fail(path(key), "unknown " + std::string(table.type) + " value '" + text +
                                "' (one of " + enumChoices(table) + ", or a number)");
        }
        return static_cast<E>(toInteger<int32_t>(*v, path(key)));
    }

    Fields object(const char* key) {
        const Json* v = take(key);
        return Fields(v ? *v : emptyObject(), path(key));
    }

    // The list `key` of at most `max` entries, into `out` (zeroed, room for `max`); each
    // entry is read by `read(json, path, entry)`. Returns the number of entries.
    template <typename T, typename Read>
    uint8_t list(const char* key, size_t max, T* out, Read read) {
        const Json* v = take(key);
        const Json& json = v ? *v : emptyList();
        checkList(json, path(key), max);
        for (size_t i = 0; i < json.size(); ++i) read(json[i], entryPath(path(key), i), out[i]);
        return static_cast<uint8_t>(json.size());
    }
    // The same into a vector of its own.
    template <typename T, typename Read>
    std::vector<T> vector(const char* key, size_t max, Read read) {
        const Json* v = take(key);
        return readVector<T>(v ? *v : emptyList(), path(key), max, read);
    }

    template <typename T, typename Read>
    static std::vector<T> readVector(const Json& json, const std::string& path, size_t max,
                                     Read read) {
        checkList(json, path, max);
        std::vector<T> out(json.size());
        zero(out.data(), out.size());
        for (size_t i = 0; i < json.size(); ++i) read(json[i], entryPath(path, i), out[i]);
        return out;
    }

    void done() const {
        for (auto it = mJson.begin(); it != mJson.end(); ++it)
            if (mTaken.count(it.key()) == 0) fail(path(it.key()), "unknown field");
    }

private:
    static void checkList(const Json& json, const std::string& path, size_t max) {
        if (!json.is_array()) fail(path, "wants a list, got " + json.dump());
        if (json.size() > max)
            fail(path, "holds at most " + std::to_string(max) + " entries, got " +
                           std::to_string(json.size()));
    }
    static std::string entryPath(const std::string& path, size_t i) {
        return path + "[" + std::to_string(i) + "]";
    }

    const Json& mJson;
    std::string mPath;
    std::set<std::string> mTaken;
};

constexpr size_t kUint8Count = std::numeric_limits<uint8_t>::max();
constexpr size_t kAnyCount = std::numeric_limits<size_t>::max();

void plmn(Fields f, plmn_id_s& p) {
    p.mcc = f.integer<uint16_t>("mcc");
    p.mnc = f.integer<uint16_t>("mnc");
    p.mnc_includes_pcs_digit = f.flag<uint8_t>("mnc_includes_pcs_digit");
    f.done();
}

void plmnEntry(const Json& json, const std::string& path, plmn_id_s& p) {
    plmn(Fields(json, path), p);
}

void location(Fields f, location_s& l) {
    l.latitude = f.integer<int32_t>("latitude");
    l.longitude = f.integer<int32_t>("longitude");
    f.done();
}

void cellInfo(Fields f, cell_info_s& c) {
    plmn(f.object("plmn"), c.plmn);
    c.cell_identity = f.integer<uint64_t>("cell_identity");
    c.band = f.integer<uint32_t>("band");
    c.freq = f.integer<uint32_t>("freq");
    c.pci = f.integer<uint32_t>("pci");
    f.done();
}

// The fields the LTE and NR dubious cells share, at the same places.
template <typename Cell>
void dubiousCellCommon(Fields& f, Cell& c) {
    c.mcc = f.integer<uint16_t>("mcc");
    c.mnc = f.integer<uint16_t>("mnc");
    c.mnc_includes_pcs_digit = f.flag<uint8_t>("mnc_includes_pcs_digit");
    c.band = f.integer<uint32_t>("band");
    c.freq = f.integer<uint32_t>("freq");
    c.pci = f.integer<uint16_t>("pci");
    c.aux_value = f.integer<uint32_t>("aux_value");
}

void lteDubiousCell(const Json& json, const std::string& path, lte_dubious_cell_info_s& c) {
    Fields f(json, path);
    dubiousCellCommon(f, c);
    c.cell_identity = f.integer<uint32_t>("cell_identity");
    f.done();
}

void nrDubiousCell(const Json& json, const std::string& path, nr_dubious_cell_info_s& c) {
    Fields f(json, path);
    dubiousCellCommon(f, c);
    c.cell_identity = f.integer<uint64_t>("cell_identity");
    c.scs = f.enumValue<nr5g_scs_type_e>("scs", kNr5gScsType);
    f.done();
}

void preferredCell(const Json& json, const std::string& path, preferred_cell_info_s& c) {
    Fields f(json, path);
    cellInfo(f.object("cell_info"), c.cell_info);
    c.param1 = f.integer<uint32_t>("param1");
    c.flag1 = f.boolean("flag1");
    c.flag2 = f.boolean("flag2");
    c.flag3 = f.boolean("flag3");
    location(f.object("location"), c.location);
    f.done();
}

void cellListEntry(const Json& json, const std::string& path, cell_list_entry_s& c) {
    Fields f(json, path);
    cellInfo(f.object("cell_info"), c.cell_info);
    c.param1 = f.optional("param1");
    c.flag2 = f.optionalFlag("flag2");
    c.param3 = f.integer<uint32_t>("param3");
    c.param4 = f.integer<uint32_t>("param4");
    c.common_valid = f.flag<uint8_t>("common_valid", f.given({"common_value", "common_flag"}));
    c.common_value = f.optional("common_value");
    c.common_flag = f.flag<uint8_t>("common_flag");
    location(f.object("location"), c.location);
    c.hdr_valid = f.flag<uint8_t>("hdr_valid", f.given({"hdr_value1", "hdr_value2", "hdr_value3"}));
    c.hdr_value1 = f.optional("hdr_value1");
    c.hdr_value2 = f.optional("hdr_value2");
    c.hdr_value3 = f.integer<uint32_t>("hdr_value3");
    c.shared_plmn_valid = f.flag<uint8_t>("shared_plmn_valid", f.given({"shared_plmn"}));
    c.shared_plmn_len = f.list("shared_plmn", MAX_SIZE_SHARED_PLMN, c.shared_plmn, plmnEntry);
    f.done();
}

void band(const Json& json, const std::string& path, uint32_t& out) {
    out = toInteger<uint32_t>(json, path);
}

void dubiousCellV2(const Json& json, const std::string& path, dubious_cell_v2_s& c) {
    Fields f(json, path);
    plmn(f.object("plmn"), c.plmn);
    c.cell_identity = f.integer<uint64_t>("cell_identity");
    c.band = f.integer<uint32_t>("band");
    c.freq = f.integer<uint32_t>("freq");
    c.pci = f.integer<uint32_t>("pci");
    c.scs = f.enumValue<nr5g_scs_type_e>("scs", kNr5gScsType);
    c.band_count = f.list("band_list", MAX_DUBIOUS_CELL_BANDS, c.band_list, band);
    f.done();
}

Json plmnJson(const plmn_id_s& p) {
    return Json{
        {"mcc", p.mcc}, {"mnc", p.mnc}, {"mnc_includes_pcs_digit", p.mnc_includes_pcs_digit}};
}

Json feedbackCellJson(const cell_list_feedback_entry_s& c) {
    Json shared = Json::array();
    for (size_t i = 0; i < std::min<size_t>(c.shared_plmn_len, MAX_SIZE_SHARED_PLMN); ++i)
        shared.push_back(plmnJson(c.shared_plmn[i]));
    return Json{{"cell_info",
                 {{"plmn", plmnJson(c.cell_info.plmn)},
                  {"cell_identity", c.cell_info.cell_identity},
                  {"band", c.cell_info.band},
                  {"freq", c.cell_info.freq},
                  {"pci", c.cell_info.pci}}},
                {"cause_bitmask", c.cause_bitmask},
                {"feedback_cause", enumJson(kCellFeedbackCause, c.feedback_cause)},
                {"shared_plmn", shared}};
}

Json feedbackListJson(const cell_list_feedback_entry_s* cells, uint8_t len) {
    Json out = Json::array();
    for (size_t i = 0; i < std::min<size_t>(len, MAX_SIZE_CELL_LIST); ++i)
        out.push_back(feedbackCellJson(cells[i]));
    return out;
}

}  // namespace

Json readJson(const std::string& path) {
    std::ifstream file;
    if (path != "-") {
        file.open(path);
        if (!file) throw RecordError(path + ": cannot read");
    }
    std::istream& in = path == "-" ? std::cin : file;
    try {
        return Json::parse(in);
    } catch (const Json::parse_error& e) {
        throw RecordError((path == "-" ? std::string("stdin") : path) + ": not JSON: " + e.what());
    }
}

std::unique_ptr<data_stall_params_s> dataStallParamsFromJson(const Json& json) {
    Fields f(json, "");
    auto p = zeroedRecord<data_stall_params_s>();
    p->traffic_direction = f.enumValue<traffic_direction_e>("traffic_direction", kTrafficDirection);
    p->flag = f.boolean("flag");
    p->application_type = f.enumValue<application_type_e>("application_type", kApplicationType);
    p->param1 = f.integer<int32_t>("param1", -1);
    p->param2 = f.integer<int32_t>("param2", -1);
    p->param3 = f.integer<int32_t>("param3", -1);
    p->param4 = f.integer<int32_t>("param4", -1);
    f.done();
    return p;
}

std::vector<lte_dubious_cell_info_s> lteDubiousCellsFromJson(const Json& json) {
    return Fields::readVector<lte_dubious_cell_info_s>(json, "", kAnyCount, lteDubiousCell);
}

std::vector<nr_dubious_cell_info_s> nrDubiousCellsFromJson(const Json& json) {
    return Fields::readVector<nr_dubious_cell_info_s>(json, "", kAnyCount, nrDubiousCell);
}

// The list behind a pointer: null when it is empty.
template <typename T>
const T* listPointer(const std::vector<T>& list) {
    return list.empty() ? nullptr : list.data();
}

std::unique_ptr<CellBarringRecord> cellBarringInfoFromJson(const Json& json) {
    Fields f(json, "");
    auto r = std::make_unique<CellBarringRecord>();
    zero(&r->info, 1);
    r->info.value = f.integer<uint64_t>("value");
    r->lteCells = f.vector<lte_dubious_cell_info_s>("lte_cells", kUint8Count, lteDubiousCell);
    r->nrCells = f.vector<nr_dubious_cell_info_s>("nr_cells", kUint8Count, nrDubiousCell);
    f.done();
    r->info.lte_cell_count = static_cast<uint8_t>(r->lteCells.size());
    r->info.lte_cells = listPointer(r->lteCells);
    r->info.nr_cell_count = static_cast<uint8_t>(r->nrCells.size());
    r->info.nr_cells = listPointer(r->nrCells);
    return r;
}

std::unique_ptr<PreferredCellListRecord> preferredCellListFromJson(const Json& json) {
    Fields f(json, "");
    auto r = std::make_unique<PreferredCellListRecord>();
    zero(&r->info, 1);
    r->info.value = f.integer<uint32_t>("value");
    r->cells = f.vector<preferred_cell_info_s>("cells", kUint8Count, preferredCell);
    r->cells2 = f.vector<preferred_cell_info_s>("cells2", kUint8Count, preferredCell);
    f.done();
    r->info.cell_count = static_cast<uint8_t>(r->cells.size());
    r->info.cells = listPointer(r->cells);
    r->info.cell_count2 = static_cast<uint8_t>(r->cells2.size());
    r->info.cells2 = listPointer(r->cells2);
    return r;
}

std::unique_ptr<set_cell_list_info_s> cellListInfoFromJson(const Json& json) {
    Fields f(json, "");
    auto r = zeroedRecord<set_cell_list_info_s>();
    r->mitigation_type =
        f.enumValue<cell_mitigation_type_e>("mitigation_type", kCellMitigationType);
    r->flag = f.flag<uint8_t>("flag");
    r->lte_cell_list_len =
        f.list("lte_cell_list", MAX_SIZE_CELL_LIST, r->lte_cell_list, cellListEntry);
    r->nr_cell_list_len =
        f.list("nr_cell_list", MAX_SIZE_CELL_LIST, r->nr_cell_list, cellListEntry);
    f.done();
    return r;
}

std::unique_ptr<dubious_cell_info_v2_s> dubiousCellInfoV2FromJson(const Json& json) {
    Fields f(json, "");
    auto r = zeroedRecord<dubious_cell_info_v2_s>();
    r->slot = f.enumValue<slot_id_e>("slot", kSlotId);
    r->lte_list_valid = f.flag<uint8_t>("lte_list_valid", f.given({"lte_cell_list"}));
    r->lte_cell_list_len =
        f.list("lte_cell_list", MAX_DUBIOUS_CELLS, r->lte_cell_list, dubiousCellV2);
    r->nr_list_valid = f.flag<uint8_t>("nr_list_valid", f.given({"nr_cell_list"}));
    r->nr_cell_list_len = f.list("nr_cell_list", MAX_DUBIOUS_CELLS, r->nr_cell_list, dubiousCellV2);
    f.done();
    return r;
}

Json enumJson(const EnumTable& table, int value) {
    if (auto name = enumName(table, value)) return *name;
    return value;
}

Json cellListIndicationToJson(const cell_list_info_ind_s& info) {
    return Json{{"mitigation_type", enumJson(kCellMitigationType, info.mitigation_type)},
                {"lte_cell_list", feedbackListJson(info.lte_cell_list, info.lte_cell_list_len)},
                {"nr_cell_list", feedbackListJson(info.nr_cell_list, info.nr_cell_list_len)}};
}

}  // namespace ruxctl
