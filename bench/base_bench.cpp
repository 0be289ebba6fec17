// Base containers against the standard library: OrderedHashTable, Array, String::compareNoCase.
#include <zeb/zeb.h>

#include "BenchTimer.h"

#include <cwchar>
#include <string>
#include <unordered_map>
#include <vector>

namespace {

const unsigned kKeys = 100000;
volatile unsigned g_sink;

std::vector<std::wstring> makeNames() {
    std::vector<std::wstring> names;
    for (unsigned i = 0; i < kKeys; ++i) names.push_back(L"Bip01_Spine_" + std::to_wstring(i * 2654435761u));
    return names;
}

void benchTable(const std::vector<std::wstring>& wide) {
    std::vector<zeb::String> names;
    for (const std::wstring& w : wide) names.push_back(zeb::String(w.c_str()));

    double ours = vexilbench::bestOf(5, [&] {
        zeb::OrderedHashTable<zeb::String, unsigned> table;
        for (unsigned i = 0; i < kKeys; ++i) table.insert(names[i], i);
        g_sink = table.size();
    });
    double theirs = vexilbench::bestOf(5, [&] {
        std::unordered_map<std::wstring, unsigned> map;
        for (unsigned i = 0; i < kKeys; ++i) map.emplace(wide[i], i);
        g_sink = static_cast<unsigned>(map.size());
    });
    vexilbench::report("OrderedHashTable insert (100k names)", ours, theirs, "unordered_map<wstring> emplace", 1.5);

    zeb::OrderedHashTable<zeb::String, unsigned> table;
    std::unordered_map<std::wstring, unsigned> map;
    for (unsigned i = 0; i < kKeys; ++i) {
        table.insert(names[i], i);
        map.emplace(wide[i], i);
    }
    ours = vexilbench::bestOf(5, [&] {
        unsigned sum = 0;
        for (unsigned i = 0; i < kKeys; ++i) sum += *table.find(names[i]);
        g_sink = sum;
    });
    theirs = vexilbench::bestOf(5, [&] {
        unsigned sum = 0;
        for (unsigned i = 0; i < kKeys; ++i) sum += map.find(wide[i])->second;
        g_sink = sum;
    });
    vexilbench::report("OrderedHashTable lookup (100k names)", ours, theirs, "unordered_map<wstring> find", 1.5);
}

void benchArray() {
    const unsigned n = 1000000;
    double ours = vexilbench::bestOf(7, [&] {
        zeb::Array<unsigned> a;
        for (unsigned i = 0; i < n; ++i) a.append(i);
        g_sink = a.size();
    });
    double theirs = vexilbench::bestOf(7, [&] {
        std::vector<unsigned> v;
        for (unsigned i = 0; i < n; ++i) v.push_back(i);
        g_sink = static_cast<unsigned>(v.size());
    });
    vexilbench::report("Array::append (1M)", ours, theirs, "vector::push_back", 1.5);
}

void benchCompareNoCase(const std::vector<std::wstring>& wide) {
    std::vector<zeb::String> lower, upper;
    std::vector<std::wstring> wideUpper;
    for (unsigned i = 0; i < 20000; ++i) {
        std::wstring u = wide[i];
        for (wchar_t& c : u) c = static_cast<wchar_t>(towupper(c));
        wideUpper.push_back(u);
        lower.push_back(zeb::String(wide[i].c_str()));
        upper.push_back(zeb::String(u.c_str()));
    }
    double ours = vexilbench::bestOf(7, [&] {
        int sum = 0;
        for (int rep = 0; rep < 10; ++rep)
            for (unsigned i = 0; i < lower.size(); ++i) sum += lower[i].compareNoCase(upper[i]);
        g_sink = static_cast<unsigned>(sum);
    });
    double theirs = vexilbench::bestOf(7, [&] {
        int sum = 0;
        for (int rep = 0; rep < 10; ++rep)
            for (unsigned i = 0; i < lower.size(); ++i) sum += _wcsicmp(wide[i].c_str(), wideUpper[i].c_str());
        g_sink = static_cast<unsigned>(sum);
    });
    vexilbench::report("String::compareNoCase (200k pairs)", ours, theirs, "_wcsicmp", 1.5);
}

}  // namespace

int main() {
    zeb::LogFactory::setDefaultSinkEnabled(false);
    std::vector<std::wstring> names = makeNames();
    benchTable(names);
    benchArray();
    benchCompareNoCase(names);
    return 0;
}
