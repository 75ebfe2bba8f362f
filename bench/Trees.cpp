// Ordered dictionaries in a file, keys of 16 bytes and records of 32: thousand operations a second of processor
// time.
//   insert  one after the other into a new file, with the closing in the time
//   find    keys that are there, in random order, after the file was opened again
//   absent  keys that aren't
//   walk    all of them in order
// 10^5 and 10^6 keys, inserted in random and in rising order. The naive stream is measured at 10^5 alone.

#include "Dictionaries.h"
#include "RunProgram.h"
#include "TableReporter.h"

#include <algorithm>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <functional>
#include <random>
#include <stdexcept>
#include <unistd.h>

namespace {

constexpr std::size_t kMostSearches = 300000;

double ProcessorSeconds() {
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Keys in the order of their insertion, and others in the order of the searches.
struct KeySet {
    std::string name;
    std::vector<Key> keys;
    std::vector<Key> present;
    std::vector<Key> absent;
};

Key AnyKey(std::mt19937_64& ioRandom) {
    const std::uint64_t halves[2] = {ioRandom(), ioRandom()};
    Key key;
    std::memcpy(key.data(), halves, sizeof halves);
    return key;
}

KeySet MakeKeySet(const std::string& iOrder, std::size_t iCount) {
    std::mt19937_64 random(20240601);
    KeySet set;
    set.name = iOrder + (iCount == 100000 ? " 10^5" : " 10^6");
    for (std::size_t i = 0; i < iCount; ++i) set.keys.push_back(AnyKey(random));
    set.present.assign(
        set.keys.begin(),
        set.keys.begin() + static_cast<std::ptrdiff_t>(std::min(iCount, kMostSearches)));
    std::shuffle(set.present.begin(), set.present.end(), random);
    for (std::size_t i = 0; i < set.present.size(); ++i) set.absent.push_back(AnyKey(random));
    if (iOrder == "rising") std::sort(set.keys.begin(), set.keys.end());
    return set;
}

struct Workload {
    std::string name;
    std::function<std::size_t(Dictionary&, const KeySet&)> work;  ///< gives how many operations
};

void Fill(Dictionary& ioDictionary, const KeySet& iSet) {
    Record record = {};
    for (const Key& key : iSet.keys) {
        std::memcpy(record.data(), key.data(), key.size());
        ioDictionary.Insert(key, record);
    }
    ioDictionary.Close();
}

std::size_t Search(Dictionary& ioDictionary, const std::vector<Key>& iKeys, bool iAreThere) {
    for (const Key& key : iKeys) {
        if (ioDictionary.Find(key) != iAreThere) throw std::runtime_error("a wrong answer");
    }
    return iKeys.size();
}

const Workload kWorkloads[] = {
    {"insert",
     [](Dictionary& ioDictionary,           const KeySet& iSet) {
         Fill(ioDictionary, iSet);
         return iSet.keys.size();
     }                                      },
    {"find",   [](Dictionary& ioDictionary,
     const KeySet& iSet) { return Search(ioDictionary, iSet.present, true); }},
    {"absent", [](Dictionary& ioDictionary,
     const KeySet& iSet) { return Search(ioDictionary, iSet.absent, false); }},
    {"walk",
     [](Dictionary& ioDictionary,           const KeySet& iSet) {
         if (ioDictionary.Enumerate() != iSet.keys.size()) {
             throw std::runtime_error("a wrong number of keys");
         }
         return iSet.keys.size();
     }                                      },
};

/// The files of a run: one for each kind and set, which searches use again.
class Folder {
public:
    Folder() { std::filesystem::create_directory(_path); }
    ~Folder() { std::filesystem::remove_all(_path); }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;

    std::string FileOf(const DictionaryKind& iKind, const KeySet& iSet) const {
        return (_path / (iKind.name + " " + iSet.name)).string();
    }

private:
    std::filesystem::path _path =
        std::filesystem::temp_directory_path() / ("gridloom-bench-" + std::to_string(getpid()));
};

void Measure(
    benchmark::State& ioState,
    const std::string& iPath,
    const DictionaryKind& iKind,
    const KeySet& iSet,
    const Workload& iWorkload) {
    const bool isNew = iWorkload.name == "insert";
    std::size_t operations = 0;
    for (auto _ : ioState) {
        if (!isNew && !std::filesystem::exists(iPath)) {
            const std::unique_ptr<Dictionary> writer = iKind.make();
            writer->Create(iPath);
            Fill(*writer, iSet);
        }
        const std::unique_ptr<Dictionary> dictionary = iKind.make();
        if (isNew) {
            dictionary->Create(iPath);
        } else {
            dictionary->Open(iPath);
        }
        const double start = ProcessorSeconds();
        operations += iWorkload.work(*dictionary, iSet);
        ioState.SetIterationTime(ProcessorSeconds() - start);
    }
    ioState.counters[iKind.name] =
        benchmark::Counter(static_cast<double>(operations) / 1e3, benchmark::Counter::kIsRate);
}

void Main() {
    const Folder folder;
    std::vector<KeySet> sets;
    for (const std::size_t count : {100000, 1000000}) {
        for (const char* order : {"random", "rising"}) sets.push_back(MakeKeySet(order, count));
    }
    TableReporter reporter(
        "thousand operations a second", {
                                            {"memory / LMDB",   "memory", "LMDB"  },
                                            {"disk / LMDB",     "disk",   "LMDB"  },
                                            {"memory / SQLite", "memory", "SQLite"},
                                            {"disk / SQLite",   "disk",   "SQLite"},
                                            {"memory / map",    "memory", "map"   },
                                            {"disk / stream",   "disk",   "stream"}
    });
    for (const KeySet& set : sets) {
        for (const Workload& workload : kWorkloads) {
            for (const DictionaryKind& kind : DictionaryKinds()) {
                if (kind.isSlow && set.keys.size() > 100000) continue;
                const std::string row = set.name + " " + workload.name;
                reporter.Announce(row, {kind.name});
                const std::string path = folder.FileOf(kind, set);
                const auto run = [=, &set](benchmark::State& ioState) {
                    Measure(ioState, path, kind, set, workload);
                };
                benchmark::RegisterBenchmark((row + "/" + kind.name).c_str(), run)
                    ->UseManualTime()
                    ->Iterations(1);
            }
        }
    }
    benchmark::RunSpecifiedBenchmarks(&reporter);
}

}  // namespace

int main(int iCount, char** iArguments) {
    return RunProgram("bench_tree", Main, iCount, iArguments);
}
