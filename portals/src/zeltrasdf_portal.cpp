// zeltrasdfPortal: the portal to a solver whose results are SDF files. It
// lists a file's readable variables for the host and reads the tagged ones
// for each design; its inputs are tagged by the modules alone.
//
// Every operation opens its file read-only and closes it with "KEEP" before
// it returns, so no channel (and no lock file) outlives an operation. Only
// 32-bit integers, logicals, reals and doubles have values; a 2-D array shows
// one column at a time under "<name>__Col<c>", c counted from 1.
#include <algorithm>
#include <cstdint>
#include <cstring>
#include <new>
#include <string_view>
#include <vector>

#include "sdf.h"
#include "zeltra/portal.h"

using MOSAQ::String;
using MOSAQ::StringStringMap;
using MOSAQ::Portals::ItemGroup;
using MOSAQ::Portals::ResponseValues;
using MOSAQ::Portals::TagData;

namespace {

constexpr std::string_view kColumnSuffix = "__Col";
constexpr std::size_t kDisplayLimit = 100;  // a longer display text is cut...
constexpr std::size_t kDisplayCut = 80;     // ...to this many characters

// Warnings (2000 to 2999) report an operation that was carried out.
bool failed(int code) { return code >= 3000; }

// A channel that is closed with "KEEP" whichever way the operation ends.
class ReadChannel {
public:
    explicit ReadChannel(const String& path)
        : opened_(!failed(Sdf_Open(&channel_, path.c_str(), "BINARY", "OLD", "READ"))) {}
    ~ReadChannel() {
        if (opened_) Sdf_Close(channel_, "KEEP");
    }
    ReadChannel(const ReadChannel&) = delete;
    ReadChannel& operator=(const ReadChannel&) = delete;
    bool opened() const { return opened_; }
    int channel() const { return channel_; }

private:
    int channel_ = -1;
    bool opened_;
};

// The width of an element of the types with values, 0 for the others.
std::size_t valueWidth(int type) {
    switch (type) {
        case SDF_INT_T:
        case SDF_LOG_T:
        case SDF_REAL_T:
            return 4;
        case SDF_DBLE_T:
            return 8;
        default:
            return 0;
    }
}

template <typename T>
double elementAs(const std::vector<std::uint64_t>& buffer, std::size_t i) {
    T value;
    std::memcpy(&value, reinterpret_cast<const unsigned char*>(buffer.data()) + i * sizeof(T),
                sizeof(T));
    return static_cast<double>(value);
}

// Element i of a buffer of elements of the variable's type, as a double.
double element(const std::vector<std::uint64_t>& buffer, int type, std::size_t i) {
    switch (type) {
        case SDF_INT_T:
        case SDF_LOG_T:
            return elementAs<std::int32_t>(buffer, i);
        case SDF_REAL_T:
            return elementAs<float>(buffer, i);
        default:
            return elementAs<double>(buffer, i);
    }
}

// A buffer of n elements of 4 or 8 bytes, 8-byte aligned, never of size 0:
// a null buffer would make the library allocate one of its own.
std::vector<std::uint64_t> buffer(std::size_t n, std::size_t width) {
    return std::vector<std::uint64_t>((n * width + 7) / 8 + 1);
}

String displayText(const std::vector<double>& values) {
    String text = "[";
    for (std::size_t i = 0; i < values.size(); ++i) {
        if (i > 0) text += ", ";
        text += MOSAQ::Portals::HelperBase::numberText(values[i]);
        if (i > 0 && text.size() > kDisplayLimit) {
            text = text.substr(0, kDisplayCut) + "...";
            break;
        }
    }
    return text + "]";
}

// Splits "<base>__Col<digits>" into base and column; no suffix gives column 0.
// A column too large to name a real one stays beyond every extent.
void splitColumn(const String& name, String& base, std::int64_t& column) {
    const std::size_t at = name.find(kColumnSuffix);
    base = name.substr(0, at);
    column = 0;
    if (at == String::npos) return;
    for (std::size_t i = at + kColumnSuffix.size();
         i < name.size() && name[i] >= '0' && name[i] <= '9'; ++i)
        column = std::min<std::int64_t>(column * 10 + (name[i] - '0'), INT32_MAX + 1LL);
}

// All elements of a 1-D or 2-D array of a type with values, in stored order.
bool readWhole(int channel, const String& name, int rank, int type, std::int64_t total,
               std::vector<double>& values) {
    // The library counts what it read in 32 bits; a larger array can't be read whole.
    if (total < 0 || total > INT32_MAX) return false;
    if (total == 0) return true;
    try {
        std::vector<std::uint64_t> data = buffer(static_cast<std::size_t>(total),
                                                 valueWidth(type));
        void* target = data.data();
        std::int32_t nread = -1;
        const int code = rank == 1
                             ? Sdf_Read_Arr1D(channel, name.c_str(), &target, 0, 0, &nread)
                             : Sdf_Read_Arr2D(channel, name.c_str(), &target, 0, 0, 0, &nread);
        if (failed(code) || nread != total) return false;
        values.reserve(static_cast<std::size_t>(total));
        for (std::size_t i = 0; i < static_cast<std::size_t>(total); ++i)
            values.push_back(element(data, type, i));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

void readError(String& errors, const String& name) {
    errors += "Error reading value of " + name + ".\n";
}

}  // namespace

zeltrasdfPortal::zeltrasdfPortal(MOSAQ::Portals::IPortalHost* host)
    : xmlPortal(host, "ZeltraSDF") {}

bool zeltrasdfPortal::parseInputFile(const String&, void*, std::list<ItemGroup>&, String&) {
    return false;
}

bool zeltrasdfPortal::writeInputTagFile(const String&, const std::list<TagData>&,
                                        const StringStringMap&, StringStringMap&, String&) {
    return false;
}

int zeltrasdfPortal::readInputTags(const String&, const StringStringMap&, std::list<TagData>&,
                                   StringStringMap&, String&) {
    return 1;
}

bool zeltrasdfPortal::processInputs(const StringStringMap& data, void* opaque, String& errors) {
    return PortalImpl::processInputs(data, opaque, errors);
}

bool zeltrasdfPortal::parseOutputFile(const String& path, void*, std::list<ItemGroup>& groups,
                                      String& errors) {
    ReadChannel file(path);
    if (!file.opened()) {
        errors += "Error: Unable to establish a connection with " + path + ".\n";
        return false;
    }
    const int ch = file.channel();
    char** names = nullptr;
    int count = 0;
    if (failed(Sdf_List(ch, "*", &names, &count)) || !names) {
        errors += "Error: Unable to extract responses from " + path + ".\n";
        return false;
    }
    ItemGroup group;
    group.name = "Variables";
    group.itemKind = "Name";
    auto addRow = [&](const String& name) {
        std::vector<double> numbers;
        String display;
        if (readVariable(ch, name, numbers, display, true, errors))
            group.items.push_back({name, display, ""});
    };
    for (int i = 0; i < count; ++i) {
        const String name = names[i] ? names[i] : "";
        int type = 0, isArray = 0;
        if (failed(Sdf_Get_Type(ch, name.c_str(), &type, &isArray))) {
            readError(errors, name);
            break;
        }
        if (!isArray) {
            addRow(name);
            continue;
        }
        std::int32_t dims[8] = {};
        if (failed(Sdf_Get_Dims(ch, name.c_str(), dims))) {
            readError(errors, name);
            break;
        }
        if (dims[0] == 1) {
            addRow(name);
        } else if (dims[0] == 2) {
            for (std::int32_t c = 1; c <= dims[2]; ++c)
                addRow(name + String(kColumnSuffix) + numberText(c));
        }
    }
    Sdf_Free(names);
    groups.push_back(std::move(group));
    return true;
}

bool zeltrasdfPortal::extractResponses(const String& file, const StringStringMap& data,
                                       const std::list<TagData>& tags, String& errors) {
    ReadChannel sdf(file);
    if (!sdf.opened()) {
        errors += "Error: Unable to establish connection with " + file + ".\n";
        return false;
    }
    for (const TagData& tag : tags) {
        if (tag.path.size() < 2) continue;
        ResponseValues values;
        String display;
        if (!readVariable(sdf.channel(), tag.path[1], values.numbers, display, false, errors))
            return false;
        reportValues(tag.paramName, data, values);
    }
    return !hasError(errors);
}

bool zeltrasdfPortal::readVariable(int channel, const String& name, std::vector<double>& numbers,
                                   String& display, bool wantDisplay, String& errors) {
    String base;
    std::int64_t column = 0;
    splitColumn(name, base, column);
    int type = 0, isArray = 0;
    if (failed(Sdf_Get_Type(channel, base.c_str(), &type, &isArray))) {
        readError(errors, name);
        return false;
    }
    const std::size_t width = valueWidth(type);
    if (!isArray) {
        if (!width) return false;
        std::vector<std::uint64_t> value = buffer(1, width);
        if (failed(Sdf_Get_Val(channel, base.c_str(), value.data()))) {
            readError(errors, name);
            return false;
        }
        numbers.push_back(element(value, type, 0));
        display = numberText(numbers.back());
        return true;
    }
    std::int32_t dims[8] = {};
    if (failed(Sdf_Get_Dims(channel, base.c_str(), dims))) {
        readError(errors, name);
        return false;
    }
    const int rank = dims[0];
    if (rank <= 0) {
        readError(errors, name);
        return false;
    }
    if (rank == 3 || ((rank == 1 || rank == 2) && !width)) return false;
    if (rank > 3) return true;

    // A column is a contiguous run of the whole array, which is read in one go.
    const std::int64_t rows = dims[1];
    const std::int64_t cols = rank == 2 ? dims[2] : 1;
    std::vector<double> values;
    const bool ok = readWhole(channel, base, rank, type, rows * cols, values);
    if (ok && rank == 2) {
        // A column that names none of the array's gives no values.
        if (column < 1 || column > cols)
            values.clear();
        else
            values = std::vector<double>(values.begin() + (column - 1) * rows,
                                         values.begin() + column * rows);
    }
    if (!ok) {
        if (rank == 2) return true;
        display.clear();
        readError(errors, name);
        return false;
    }
    if (wantDisplay)
        display = displayText(values);
    else
        numbers.insert(numbers.end(), values.begin(), values.end());
    return true;
}
