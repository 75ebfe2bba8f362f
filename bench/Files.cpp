// Appends and positioned accesses to files: thousand operations a second of processor time.
//   append  records one after the other into a new file
//   read, write  records of the file just made, in random order
//   scan    its records in their order
//   mixed   overwrite a random record, append one, read a random one
//   open    random reads of a file that was closed before
//   close   as append, with the closing of the file in the time
// The rows "over 7 MiB" are the same while the pages may hold a quarter of the file only; "image" is one
// write of 16 MiB into a new file.

#include "ByteStores.h"
#include "RunProgram.h"
#include "TableReporter.h"

#include "IdxFile.h"

#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <functional>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>

namespace {

/// What is done to a file: `count` accesses of `size` bytes, over at most `pageMemory` bytes of pages.
struct Load {
    std::string name;
    unsigned int size;
    unsigned int count;
    std::size_t pageMemory;
};

constexpr std::size_t kUsualPageMemory = std::size_t{256} << 20U;

double ProcessorSeconds() {
    timespec time = {};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void Check(bool iDone) {
    if (!iDone) throw std::runtime_error("an access failed");
}

/// A file for one run, and what is done to it.
class Run {
public:
    Run(ByteStore& ioStore, const Load& iLoad)
        : _store(ioStore),
          _load(iLoad),
          _record(iLoad.size, 'r'),
          _path((std::filesystem::temp_directory_path() / "gridloom-bench-file").string()) {
        IdxFile::SetPageMemory(iLoad.pageMemory);
        std::filesystem::remove(_path);
    }
    ~Run() {
        _store.Close();
        std::filesystem::remove(_path);
        IdxFile::SetPageMemory(kUsualPageMemory);
    }
    Run(const Run&) = delete;
    Run& operator=(const Run&) = delete;

    void Append() {
        for (unsigned int i = 0; i < _load.count; ++i) AppendOne();
    }
    void Read() {
        for (unsigned int i = 0; i < _load.count; ++i) ReadOne(Any());
    }
    void Scan() {
        for (unsigned int i = 0; i < _load.count; ++i) ReadOne(i);
    }
    void Write() {
        for (unsigned int i = 0; i < _load.count; ++i) WriteOne(Any());
    }
    void Mixed() {
        for (unsigned int i = 0; i < _load.count / 3; ++i) {
            WriteOne(Any());
            AppendOne();
            ReadOne(Any());
        }
    }
    void Close() { _store.Close(); }

    void Open() { Check(_store.Open(_path.c_str())); }

private:
    void AppendOne() { Check(_store.Append(_record.data(), _load.size)); }
    void ReadOne(unsigned int iRecord) {
        Check(_store.ReadAt(iRecord * _load.size, _record.data(), _load.size));
    }
    void WriteOne(unsigned int iRecord) {
        Check(_store.WriteAt(iRecord * _load.size, _record.data(), _load.size));
    }
    unsigned int Any() { return static_cast<unsigned int>((_random() >> 32) * _load.count >> 32); }

    ByteStore& _store;
    Load _load;
    std::string _record;
    std::string _path;
    std::mt19937_64 _random{20240601};
};

struct Workload {
    std::string name;
    enum { NewFile, FullFile, ClosedFile } on;
    std::function<void(Run&)> work;
};

const Workload kWorkloads[] = {
    {"append", Workload::NewFile,    &Run::Append},
    {"read",   Workload::FullFile,   &Run::Read  },
    {"scan",   Workload::FullFile,   &Run::Scan  },
    {"write",  Workload::FullFile,   &Run::Write },
    {"mixed",  Workload::FullFile,   &Run::Mixed },
    {"open",   Workload::ClosedFile, &Run::Read  },
    {"close",  Workload::NewFile,
     [](Run& ioRun) {
         ioRun.Append();
         ioRun.Close();
     }                                           },
};

using MakeStore = std::unique_ptr<ByteStore> (*)();

struct Contestant {
    std::string name;
    MakeStore make;
};

const Contestant kContestants[] = {
    {"Gridloom",   &MakeIndexFileStore },
    {"stream",     &MakeStreamStore    },
    {"positioned", &MakePositionedStore},
    {"memory map", &MakeMappedStore    },
};

double Measure(const Contestant& iContestant, const Load& iLoad, const Workload& iWorkload) {
    const std::unique_ptr<ByteStore> store = iContestant.make();
    Run run(*store, iLoad);
    run.Open();
    if (iWorkload.on != Workload::NewFile) run.Append();
    if (iWorkload.on == Workload::ClosedFile) {
        run.Close();
        run.Open();
    }
    const double start = ProcessorSeconds();
    iWorkload.work(run);
    return ProcessorSeconds() - start;
}

void Register(
    TableReporter& ioReporter,
    const Contestant& iContestant,
    const Load& iLoad,
    const Workload& iWorkload) {
    const std::string row = iLoad.name + " " + iWorkload.name;
    ioReporter.Announce(row, {iContestant.name});
    const auto run = [=](benchmark::State& ioState) {
        for (auto _ : ioState) {
            ioState.SetIterationTime(Measure(iContestant, iLoad, iWorkload));
        }
        ioState.counters[iContestant.name] = benchmark::Counter(
            static_cast<double>(ioState.iterations()) * iLoad.count / 1e3,
            benchmark::Counter::kIsRate);
    };
    benchmark::RegisterBenchmark((row + "/" + iContestant.name).c_str(), run)
        ->UseManualTime()
        ->Iterations(1);
}

void Main() {
    TableReporter reporter(
        "thousand operations a second", {
                                            {"Gridloom / stream",     "Gridloom", "stream"    },
                                            {"Gridloom / positioned", "Gridloom", "positioned"},
                                            {"Gridloom / memory map", "Gridloom", "memory map"}
    });
    const Load small = {"28 B", 28, 1000000, kUsualPageMemory};
    const Load big = {"4 KiB", 4096, 50000, kUsualPageMemory};
    const Load beyond = {"28 B over 7 MiB", 28, 1000000, std::size_t{7} << 20U};
    const Load image = {"image", 16U << 20U, 1, kUsualPageMemory};
    for (const Contestant& contestant : kContestants) {
        for (const Load& load : {small, big, beyond}) {
            for (const Workload& workload : kWorkloads) {
                Register(reporter, contestant, load, workload);
            }
        }
        Register(reporter, contestant, image, kWorkloads[std::size(kWorkloads) - 1]);
    }
    benchmark::RunSpecifiedBenchmarks(&reporter);
}

}  // namespace

int main(int iCount, char** iArguments) {
    return RunProgram("bench_files", Main, iCount, iArguments);
}
