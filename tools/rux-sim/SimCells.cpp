#include "SimCells.h"

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <optional>

#include "SimProtocol.h"

namespace rux::sim {

using namespace VexProto;

const char* const kCellKeys =
    "mcc= mnc= pcs= id= band= freq= pci= cause= feedback= shared=MCC-MNC[-PCS],...";

namespace {

// "name: value" pairs, printed as "{a: 1, b: 2}".
class Fields {
public:
    Fields& add(const char* name, const std::string& value) {
        mText += (mText.empty() ? "" : ", ") + std::string(name) + ": " + value;
        return *this;
    }
    template <typename Number>
    Fields& num(const char* name, Number value) {
        return add(name, std::to_string(value));
    }
    Fields& flag(const char* name, bool value) { return add(name, value ? "true" : "false"); }
    // A nested message, shown only when present (proto3 keeps presence for messages).
    template <typename Message, typename Describe>
    Fields& message(const char* name, bool present, const Message& m, Describe describe) {
        return present ? add(name, describe(m)) : *this;
    }
    std::string str() const { return "{" + mText + "}"; }

private:
    std::string mText;
};

std::string slot(int v) {
    return nameOr(v, [](int x) { return SlotId_Name(x); });
}
std::string band(int v) {
    return nameOr(v, [](int x) { return ActiveBand_Name(x); });
}
std::string scs(int v) {
    return nameOr(v, [](int x) { return Nr5gScsType_Name(x); });
}
std::string mitigation(int v) {
    return nameOr(v, [](int x) { return CellMitigationType_Name(x); });
}
std::string feedbackCause(int v) {
    return nameOr(v, [](int x) { return CellFeedbackCauseType_Name(x); });
}

template <typename List, typename Describe>
std::string list(const List& items, Describe describe) {
    std::string out;
    for (const auto& item : items) out += (out.empty() ? "" : ", ") + describe(item);
    return "[" + out + "]";
}

std::string numbers(const google::protobuf::RepeatedField<uint32_t>& values) {
    return list(values, [](uint32_t v) { return std::to_string(v); });
}

std::string plmn(const PlmnIdType& p) {
    return Fields()
        .num("mcc", p.mcc())
        .num("mnc", p.mnc())
        .flag("mnc_includes_pcs_digit", p.mnc_includes_pcs_digit())
        .str();
}

std::string location(const LocationType& l) {
    return Fields().num("latitude", l.latitude()).num("longitude", l.longitude()).str();
}

// The fields every cell record starts with (CellInfoType has only these).
template <typename Cell>
Fields cellFields(const Cell& c) {
    Fields fields;
    fields.message("plmn", c.has_plmn(), c.plmn(), plmn)
        .num("cell_identity", c.cell_identity())
        .add("band", band(c.band()))
        .num("freq", c.freq())
        .num("pci", c.pci());
    return fields;
}

std::string cellInfo(const CellInfoType& c) {
    return cellFields(c).str();
}

std::string lteCell(const LteCellInfoType& c) {
    return cellFields(c)
        .num("aux_value", c.aux_value())
        .add("aux_values", numbers(c.aux_values()))
        .str();
}

std::string nrCell(const NrCellInfoType& c) {
    return cellFields(c)
        .add("scs", scs(c.scs()))
        .num("aux_value", c.aux_value())
        .add("aux_values", numbers(c.aux_values()))
        .str();
}

std::string sharedPlmns(const CellPropertyCategoryRsType& rs) {
    return Fields().add("shared_plmn", list(rs.shared_plmn(), plmn)).str();
}

std::string common(const CellPropertyCategoryCommonType& c) {
    return Fields()
        .flag("value_valid", c.value_valid())
        .num("value", c.value())
        .flag("flag", c.flag())
        .message("location", c.has_location(), c.location(), location)
        .str();
}

std::string hdr(const CellPropertyCategoryHdrType& h) {
    return Fields()
        .flag("value1_valid", h.value1_valid())
        .num("value1", h.value1())
        .flag("value2_valid", h.value2_valid())
        .num("value2", h.value2())
        .num("value3", h.value3())
        .str();
}

std::string property(const CellPropertyCategoryType& p) {
    return Fields()
        .flag("common_valid", p.common_valid())
        .message("common", p.has_common(), p.common(), common)
        .flag("hdr_valid", p.hdr_valid())
        .message("hdr", p.has_hdr(), p.hdr(), hdr)
        .flag("rs_valid", p.rs_valid())
        .message("rs", p.has_rs(), p.rs(), sharedPlmns)
        .str();
}

std::string listedCell(const SetCellListInfoType& c) {
    return Fields()
        .message("cell_info", c.has_cell_info(), c.cell_info(), cellInfo)
        .flag("param1_valid", c.param1_valid())
        .num("param1", c.param1())
        .flag("flag2_valid", c.flag2_valid())
        .flag("flag2", c.flag2())
        .num("param3", c.param3())
        .num("param4", c.param4())
        .message("property", c.has_property(), c.property(), property)
        .str();
}

std::string preferredCell(const PreferredCellInfoType& c) {
    return Fields()
        .message("cell_info", c.has_cell_info(), c.cell_info(), cellInfo)
        .num("param1", c.param1())
        .flag("flag1", c.flag1())
        .flag("flag2", c.flag2())
        .flag("flag3", c.flag3())
        .message("location", c.has_location(), c.location(), location)
        .str();
}

std::string feedbackCell(const FeedbackCellListInfoType& c) {
    const auto property = [](const FeedbackCellPropertyCategoryType& p) {
        return Fields()
            .flag("rs_valid", p.rs_valid())
            .message("rs", p.has_rs(), p.rs(), sharedPlmns)
            .str();
    };
    return Fields()
        .message("cell_info", c.has_cell_info(), c.cell_info(), cellInfo)
        .num("cause_bitmask", c.cause_bitmask())
        .add("feedback_cause", feedbackCause(c.feedback_cause()))
        .message("property", c.has_property(), c.property(), property)
        .str();
}

// --- "indicate cell-list" ------------------------------------------------------------------

std::optional<uint64_t> parseUnsigned(const std::string& text, uint64_t max) {
    if (text.empty() || text[0] == '-') return std::nullopt;
    errno = 0;
    char* end = nullptr;
    const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
    if (errno != 0 || *end != '\0' || value > max) return std::nullopt;
    return value;
}

// "310-260" or "310-260-1" into `out`.
bool parsePlmn(const std::string& text, PlmnIdType& out) {
    std::vector<std::string> parts;
    for (size_t start = 0;;) {
        const size_t dash = text.find('-', start);
        parts.push_back(text.substr(start, dash - start));
        if (dash == std::string::npos) break;
        start = dash + 1;
    }
    if (parts.size() < 2 || parts.size() > 3) return false;
    const auto mcc = parseUnsigned(parts[0], UINT32_MAX);
    const auto mnc = parseUnsigned(parts[1], UINT32_MAX);
    const auto pcs = parts.size() == 3 ? parseBool(parts[2]) : std::optional<bool>(false);
    if (!mcc || !mnc || !pcs) return false;
    out.set_mcc(static_cast<uint32_t>(*mcc));
    out.set_mnc(static_cast<uint32_t>(*mnc));
    out.set_mnc_includes_pcs_digit(*pcs);
    return true;
}

// One key=value word into `cell`; what is wrong, or "".
std::string setCellField(const std::string& word, FeedbackCellListInfoType& cell) {
    const size_t eq = word.find('=');
    if (eq == std::string::npos) return "expected key=value, got '" + word + "'";
    const std::string key = word.substr(0, eq);
    const std::string value = word.substr(eq + 1);
    const std::string bad = "bad value for " + key + ": '" + value + "'";
    CellInfoType& info = *cell.mutable_cell_info();
    if (key == "shared") {
        auto& rs = *cell.mutable_property();
        rs.set_rs_valid(true);
        auto& plmns = *rs.mutable_rs();
        for (size_t start = 0; start <= value.size();) {
            const size_t comma = std::min(value.find(',', start), value.size());
            if (!parsePlmn(value.substr(start, comma - start), *plmns.add_shared_plmn()))
                return bad;
            start = comma + 1;
        }
        return "";
    }
    if (key == "band" || key == "feedback") {
        const auto number =
            key == "band" ? parseEnum<ActiveBand>(value, ActiveBand_Parse)
                          : parseEnum<CellFeedbackCauseType>(value, CellFeedbackCauseType_Parse);
        if (!number) return bad;
        if (key == "band")
            info.set_band(static_cast<ActiveBand>(*number));
        else
            cell.set_feedback_cause(static_cast<CellFeedbackCauseType>(*number));
        return "";
    }
    if (key == "pcs") {
        const auto flag = parseBool(value);
        if (!flag) return bad;
        info.mutable_plmn()->set_mnc_includes_pcs_digit(*flag);
        return "";
    }
    const auto number = parseUnsigned(value, key == "id" ? UINT64_MAX : UINT32_MAX);
    if (!number) return bad;
    const auto n32 = static_cast<uint32_t>(*number);
    if (key == "mcc")
        info.mutable_plmn()->set_mcc(n32);
    else if (key == "mnc")
        info.mutable_plmn()->set_mnc(n32);
    else if (key == "id")
        info.set_cell_identity(*number);
    else if (key == "freq")
        info.set_freq(n32);
    else if (key == "pci")
        info.set_pci(n32);
    else if (key == "cause")
        cell.set_cause_bitmask(n32);
    else
        return "unknown cell field '" + key + "' (" + kCellKeys + ")";
    return "";
}

}  // namespace

std::string describeCellRequest(const ClientData& d) {
    switch (d.msg_type_case()) {
        case ClientData::kSetCellBarringInfoReq: {
            const auto& m = d.set_cell_barring_info_req();
            return Fields()
                .add("slot_id", slot(m.slot_id()))
                .num("param", m.param())
                .add("lte_cell_list", list(m.lte_cell_list(), lteCell))
                .add("nr_cell_list", list(m.nr_cell_list(), nrCell))
                .str();
        }
        case ClientData::kSetLteDubiousCellListReq: {
            const auto& m = d.set_lte_dubious_cell_list_req();
            return Fields()
                .add("slot_id", slot(m.slot_id()))
                .add("lte_cell_list", list(m.lte_cell_list(), lteCell))
                .str();
        }
        case ClientData::kSetNrDubiousCellListReq: {
            const auto& m = d.set_nr_dubious_cell_list_req();
            return Fields()
                .add("slot_id", slot(m.slot_id()))
                .add("nr_cell_list", list(m.nr_cell_list(), nrCell))
                .str();
        }
        case ClientData::kSetPrefCellListReq: {
            const auto& m = d.set_pref_cell_list_req();
            return Fields()
                .add("slot_id", slot(m.slot_id()))
                .num("param", m.param())
                .add("cell_list", list(m.cell_list(), preferredCell))
                .add("cell_list2", list(m.cell_list2(), preferredCell))
                .str();
        }
        case ClientData::kSetCellListInfoReq: {
            const auto& m = d.set_cell_list_info_req().set_cell_list_info();
            return Fields()
                .add("mitigation_type", mitigation(m.mitigation_type()))
                .flag("flag", m.flag())
                .add("lte_cell_list", list(m.lte_cell_list(), listedCell))
                .add("nr_cell_list", list(m.nr_cell_list(), listedCell))
                .str();
        }
        case ClientData::kSetDubiousCellListV2Req: {
            const auto& m = d.set_dubious_cell_list_v2_req().set_dubious_cell_list_v2();
            return Fields()
                .add("slot_id", slot(m.slot_id()))
                .flag("lte_list_valid", m.lte_list_valid())
                .add("lte_cell_list", list(m.lte_cell_list(), lteCell))
                .flag("nr_list_valid", m.nr_list_valid())
                .add("nr_cell_list", list(m.nr_cell_list(), nrCell))
                .str();
        }
        default:
            return "";
    }
}

std::string describeCellListFeedback(const CellListInfoInd& ind) {
    return Fields()
        .add("mitigation_type", mitigation(ind.mitigation_type()))
        .add("lte_cell_list", list(ind.lte_cell_list(), feedbackCell))
        .add("nr_cell_list", list(ind.nr_cell_list(), feedbackCell))
        .str();
}

std::string parseCellListIndication(const std::vector<std::string>& args, ServiceMsg& msg) {
    if (args.empty())
        return "usage: indicate cell-list <CellMitigationType> [lte|nr key=value...]...";
    const auto type = parseEnum<CellMitigationType>(args[0], CellMitigationType_Parse);
    if (!type) return "unknown CellMitigationType '" + args[0] + "'";
    msg.Clear();
    msg.set_event_id(CELL_LIST_INFO_IND_RESP);
    CellListInfoInd& ind =
        *msg.mutable_data()->mutable_cell_list_info_ind_resp()->mutable_cell_list_info_ind();
    ind.set_mitigation_type(static_cast<CellMitigationType>(*type));
    FeedbackCellListInfoType* cell = nullptr;
    for (size_t i = 1; i < args.size(); ++i) {
        if (args[i] == "lte" || args[i] == "nr") {
            cell = args[i] == "lte" ? ind.add_lte_cell_list() : ind.add_nr_cell_list();
            continue;
        }
        if (cell == nullptr) return "a cell starts with lte or nr, got '" + args[i] + "'";
        const std::string problem = setCellField(args[i], *cell);
        if (!problem.empty()) return problem;
    }
    return "";
}

}  // namespace rux::sim
