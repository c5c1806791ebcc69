// Speed of SDF files against plain POSIX I/O and, when built with it, the
// HDF5 library, all measured in one run on the same machine and disk:
//
//   big     one large double array written to a new file and closed, then
//           opened and read back whole;
//   scalars many scalar double variables created and the file closed; the
//           file opened and all names listed; 1,000 random names read;
//   column  one column of a rows x 20 double table read (SDF: a slice of a
//           2-D array; HDF5: a hyperslab);
//   append  many appends of 1,000 doubles to one growing array (SDF: writes
//           with no start; HDF5: a chunked extendible dataset).
//
// Every file is synced (fsync) inside the timing of the step that writes it,
// and its pages are then dropped from the OS cache (POSIX_FADV_DONTNEED)
// outside the timing, for all three the same way, so each read starts cold.
// The POSIX baseline of the scalar cases is one file of name/value records
// loaded whole into a hash map: a floor with no format at all. Ratios are
// speed ratios: other time / SDF time, so above 1 means SDF is faster.
//
// usage: sdf_bench [scale [directory [cases]]]   scale 1 (default) is full
// size; cases is a comma-separated choice of big,scalars,column,append.
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <functional>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "sdf.h"

#ifdef ZELTRA_BENCH_HDF5
#include <hdf5.h>
#endif

namespace {

using Clock = std::chrono::steady_clock;

double timed(const std::function<void()>& work) {
    auto a = Clock::now();
    work();
    return std::chrono::duration<double>(Clock::now() - a).count();
}

[[noreturn]] void die(const char* what, long code) {
    std::fprintf(stderr, "sdf_bench: %s failed (%ld)\n", what, code);
    std::exit(1);
}

// SDF codes from 3000 up are failures; warnings below are accepted.
void sdf_ok(int rc, const char* what) {
    if (rc >= 3000) die(what, rc);
}

// Forces the file to disk (timed by the caller).
void sync_file(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0 || ::fsync(fd) != 0) die(("fsync " + path).c_str(), errno);
    ::close(fd);
}

// Drops the file's pages from the OS cache, so the next read goes to disk.
void drop_cache(const std::string& path) {
    int fd = ::open(path.c_str(), O_RDONLY);
    if (fd < 0) die(("open " + path).c_str(), errno);
    ::posix_fadvise(fd, 0, 0, POSIX_FADV_DONTNEED);
    ::close(fd);
}

void write_all(int fd, const void* p, size_t n) {
    auto* c = static_cast<const char*>(p);
    while (n > 0) {
        ssize_t got = ::write(fd, c, n);
        if (got <= 0) die("write", errno);
        c += got;
        n -= static_cast<size_t>(got);
    }
}

void read_all(int fd, void* p, size_t n) {
    auto* c = static_cast<char*>(p);
    while (n > 0) {
        ssize_t got = ::read(fd, c, n);
        if (got <= 0) die("read", errno);
        c += got;
        n -= static_cast<size_t>(got);
    }
}

// One measured step: seconds for each contender (negative: not measured)
// and the speed target against POSIX or HDF5 (0: none).
struct Step {
    std::string name;
    double sdf = -1, posix = -1, hdf5 = -1;
    double posix_target = 0, hdf5_target = 0;
};

std::vector<Step> results;

void report() {
    std::printf("\n%-40s %10s %10s %10s %12s %12s\n", "step", "SDF s", "POSIX s", "HDF5 s", "POSIX/SDF", "HDF5/SDF");
    for (const Step& s : results) {
        auto cell = [](double v) {
            static char buf[4][32];
            static int k = 0;
            char* b = buf[k++ % 4];
            if (v < 0)
                std::snprintf(b, 32, "%10s", "-");
            else
                std::snprintf(b, 32, "%10.4f", v);
            return b;
        };
        auto ratio = [](double other, double sdf, double target) {
            std::string r = "-";
            if (other >= 0 && sdf > 0) {
                char b[48];
                std::snprintf(b, sizeof b, "%.2f", other / sdf);
                r = b;
                if (target > 0) r += other / sdf >= target ? " ok" : " MISS";
            }
            return r;
        };
        std::printf("%-40s %s %s %s %12s %12s\n", s.name.c_str(), cell(s.sdf), cell(s.posix), cell(s.hdf5),
                    ratio(s.posix, s.sdf, s.posix_target).c_str(), ratio(s.hdf5, s.sdf, s.hdf5_target).c_str());
    }
    std::printf("\ntargets: big array POSIX/SDF >= 0.9; scalars HDF5/SDF >= 10 (create), 4 (list), 10 (reads);\n"
                "column HDF5/SDF >= 5; appends HDF5/SDF >= 2.\n");
}

// ------------------------------------------------------------------ SDF

int sdf_open(const std::string& path, bool create) {
    int ch = -1;
    sdf_ok(Sdf_Open(&ch, path.c_str(), "BINARY", create ? "NEW" : "OLD", create ? "WRITE" : "READ"), "Sdf_Open");
    return ch;
}

void sdf_close(int ch) { sdf_ok(Sdf_Close(ch, "KEEP"), "Sdf_Close"); }

// ------------------------------------------------------------------ HDF5

#ifdef ZELTRA_BENCH_HDF5
void h5_ok(long rc, const char* what) {
    if (rc < 0) die(what, rc);
}

hid_t h5_create(const std::string& path) {
    hid_t f = H5Fcreate(path.c_str(), H5F_ACC_TRUNC, H5P_DEFAULT, H5P_DEFAULT);
    h5_ok(f, "H5Fcreate");
    return f;
}

hid_t h5_open(const std::string& path) {
    hid_t f = H5Fopen(path.c_str(), H5F_ACC_RDONLY, H5P_DEFAULT);
    h5_ok(f, "H5Fopen");
    return f;
}
#endif

// ------------------------------------------------------------- the cases

struct Bench {
    std::string dir;
    double scale = 1;

    std::string file(const char* name) const { return dir + "/" + name; }
    int64_t scaled(int64_t full, int64_t least) const {
        return std::max<int64_t>(least, static_cast<int64_t>(std::llround(static_cast<double>(full) * scale)));
    }

    void big_array();
    void scalars();
    void column();
    void appends();
};

void Bench::big_array() {
    const int64_t n = scaled(int64_t{256} << 20, 8 << 10) / 8;
    std::vector<double> data(static_cast<size_t>(n)), back(static_cast<size_t>(n));
    for (int64_t i = 0; i < n; i++) data[static_cast<size_t>(i)] = static_cast<double>(i) * 0.5;
    const size_t bytes = static_cast<size_t>(n) * 8;
    Step w{"big array: write " + std::to_string(bytes >> 20) + " MiB"}, r{"big array: read back"};
    w.posix_target = r.posix_target = 0.9;

    const std::string sp = file("big.sdf");
    w.sdf = timed([&] {
        int ch = sdf_open(sp, true);
        int64_t dims[2] = {1, n}, start[2] = {1, 0};
        sdf_ok(Sdf_Define_Array64(ch, "big", SDF_DBLE_T, 0, dims, nullptr, nullptr), "Sdf_Define_Array64");
        sdf_ok(Sdf_Write_Array64(ch, "big", data.data(), start, n), "Sdf_Write_Array64");
        sdf_close(ch);
        sync_file(sp);
    });
    drop_cache(sp);
    r.sdf = timed([&] {
        int ch = sdf_open(sp, false);
        void* p = back.data();
        int64_t got = 0;
        sdf_ok(Sdf_Read_Array64(ch, "big", &p, nullptr, 0, &got), "Sdf_Read_Array64");
        if (got != n) die("SDF read count", static_cast<long>(got));
        sdf_close(ch);
    });
    if (back != data) die("SDF big array compare", 0);

    const std::string pp = file("big.raw");
    w.posix = timed([&] {
        int fd = ::open(pp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        write_all(fd, data.data(), bytes);
        if (::fsync(fd) != 0) die("fsync", errno);
        ::close(fd);
    });
    drop_cache(pp);
    std::fill(back.begin(), back.end(), 0.0);
    r.posix = timed([&] {
        int fd = ::open(pp.c_str(), O_RDONLY);
        read_all(fd, back.data(), bytes);
        ::close(fd);
    });

#ifdef ZELTRA_BENCH_HDF5
    const std::string hp = file("big.h5");
    w.hdf5 = timed([&] {
        hid_t f = h5_create(hp);
        hsize_t d[1] = {static_cast<hsize_t>(n)};
        hid_t sp5 = H5Screate_simple(1, d, nullptr);
        hid_t ds = H5Dcreate2(f, "big", H5T_NATIVE_DOUBLE, sp5, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
        h5_ok(ds, "H5Dcreate2");
        h5_ok(H5Dwrite(ds, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, data.data()), "H5Dwrite");
        H5Dclose(ds);
        H5Sclose(sp5);
        H5Fclose(f);
        sync_file(hp);
    });
    drop_cache(hp);
    r.hdf5 = timed([&] {
        hid_t f = h5_open(hp);
        hid_t ds = H5Dopen2(f, "big", H5P_DEFAULT);
        h5_ok(H5Dread(ds, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, back.data()), "H5Dread");
        H5Dclose(ds);
        H5Fclose(f);
    });
#endif
    results.push_back(w);
    results.push_back(r);
}

void Bench::scalars() {
    const int n = static_cast<int>(scaled(100000, 100));
    const int picks = std::min(n, 1000);
    std::vector<std::string> names;
    names.reserve(static_cast<size_t>(n));
    for (int i = 0; i < n; i++) names.push_back("var_" + std::to_string(int64_t{i} * 7919 % n) + "_x");
    std::mt19937 rng(42);
    std::vector<int> pick(static_cast<size_t>(picks));
    for (int& p : pick) p = static_cast<int>(rng() % static_cast<unsigned>(n));
    auto value = [&](int i) { return 1.0 + i * 0.25; };
    Step c{"scalars: create " + std::to_string(n)}, l{"scalars: open and list all names"},
        g{"scalars: read " + std::to_string(picks) + " random names"};
    c.hdf5_target = 10;
    l.hdf5_target = 4;
    g.hdf5_target = 10;
    double sum = 0, want = 0;
    for (int p : pick) want += value(p);

    const std::string sp = file("scalars.sdf");
    c.sdf = timed([&] {
        int ch = sdf_open(sp, true);
        for (int i = 0; i < n; i++) {
            double v = value(i);
            sdf_ok(Sdf_Write_Var(ch, names[static_cast<size_t>(i)].c_str(), SDF_DBLE_T, &v, nullptr, nullptr),
                   "Sdf_Write_Var");
        }
        sdf_close(ch);
        sync_file(sp);
    });
    drop_cache(sp);
    int ch = -1;
    l.sdf = timed([&] {
        ch = sdf_open(sp, false);
        char** list = nullptr;
        int count = 0;
        sdf_ok(Sdf_List(ch, "*", &list, &count), "Sdf_List");
        if (count != n) die("Sdf_List count", count);
        Sdf_Free(list);
    });
    g.sdf = timed([&] {
        for (int p : pick) {
            double v = 0;
            sdf_ok(Sdf_Get_Val(ch, names[static_cast<size_t>(p)].c_str(), &v), "Sdf_Get_Val");
            sum += v;
        }
    });
    sdf_close(ch);
    if (sum != want) die("SDF scalar values", 0);

    // POSIX floor: name NUL value records in one file, loaded into a map.
    const std::string pp = file("scalars.raw");
    c.posix = timed([&] {
        std::string buf;
        for (int i = 0; i < n; i++) {
            double v = value(i);
            buf += names[static_cast<size_t>(i)];
            buf.push_back('\0');
            buf.append(reinterpret_cast<const char*>(&v), 8);
        }
        int fd = ::open(pp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        write_all(fd, buf.data(), buf.size());
        if (::fsync(fd) != 0) die("fsync", errno);
        ::close(fd);
    });
    drop_cache(pp);
    std::unordered_map<std::string, double> index;
    l.posix = timed([&] {
        int fd = ::open(pp.c_str(), O_RDONLY);
        off_t size = ::lseek(fd, 0, SEEK_END);
        std::string buf(static_cast<size_t>(size), '\0');
        if (::pread(fd, buf.data(), buf.size(), 0) != size) die("pread", errno);
        ::close(fd);
        std::vector<std::string> list;
        for (size_t at = 0; at < buf.size();) {
            size_t end = buf.find('\0', at);
            double v;
            std::memcpy(&v, buf.data() + end + 1, 8);
            list.emplace_back(buf, at, end - at);
            index.emplace(list.back(), v);
            at = end + 9;
        }
        std::sort(list.begin(), list.end());
    });
    sum = 0;
    g.posix = timed([&] {
        for (int p : pick) sum += index.at(names[static_cast<size_t>(p)]);
    });

#ifdef ZELTRA_BENCH_HDF5
    const std::string hp = file("scalars.h5");
    c.hdf5 = timed([&] {
        hid_t f = h5_create(hp);
        hid_t space = H5Screate(H5S_SCALAR);
        for (int i = 0; i < n; i++) {
            double v = value(i);
            hid_t ds = H5Dcreate2(f, names[static_cast<size_t>(i)].c_str(), H5T_NATIVE_DOUBLE, space, H5P_DEFAULT,
                                  H5P_DEFAULT, H5P_DEFAULT);
            h5_ok(ds, "H5Dcreate2");
            h5_ok(H5Dwrite(ds, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, &v), "H5Dwrite");
            H5Dclose(ds);
        }
        H5Sclose(space);
        H5Fclose(f);
        sync_file(hp);
    });
    drop_cache(hp);
    hid_t hf = -1;
    l.hdf5 = timed([&] {
        hf = h5_open(hp);
        std::vector<std::string> list;
        auto add = [](hid_t, const char* name, const H5L_info_t*, void* out) -> herr_t {
            static_cast<std::vector<std::string>*>(out)->emplace_back(name);
            return 0;
        };
        h5_ok(H5Literate(hf, H5_INDEX_NAME, H5_ITER_INC, nullptr, add, &list), "H5Literate");
        if (static_cast<int>(list.size()) != n) die("HDF5 list count", static_cast<long>(list.size()));
    });
    sum = 0;
    g.hdf5 = timed([&] {
        for (int p : pick) {
            double v = 0;
            hid_t ds = H5Dopen2(hf, names[static_cast<size_t>(p)].c_str(), H5P_DEFAULT);
            h5_ok(ds, "H5Dopen2");
            h5_ok(H5Dread(ds, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, &v), "H5Dread");
            H5Dclose(ds);
            sum += v;
        }
    });
    H5Fclose(hf);
    if (sum != want) die("HDF5 scalar values", 0);
#endif
    results.push_back(c);
    results.push_back(l);
    results.push_back(g);
}

void Bench::column() {
    const int64_t rows = scaled(100000, 100), cols = 20, col = 7;
    std::vector<double> table(static_cast<size_t>(rows * cols));  // first index (row) fastest
    for (int64_t j = 0; j < cols; j++)
        for (int64_t i = 0; i < rows; i++) table[static_cast<size_t>(j * rows + i)] = static_cast<double>(i * 100 + j);
    std::vector<double> back(static_cast<size_t>(rows));
    auto check = [&](const char* who) {
        for (int64_t i = 0; i < rows; i++)
            if (back[static_cast<size_t>(i)] != static_cast<double>(i * 100 + col)) die(who, static_cast<long>(i));
    };
    Step s{"column of " + std::to_string(rows) + " x 20 (row-major HDF5)"};
    Step t{"column, HDF5 stored column by column"};
    s.hdf5_target = 5;

    const std::string sp = file("table.sdf");
    {
        int ch = sdf_open(sp, true);
        int64_t dims[3] = {2, rows, cols}, start[3] = {2, 0, 0};
        sdf_ok(Sdf_Define_Array64(ch, "table", SDF_DBLE_T, 0, dims, nullptr, nullptr), "Sdf_Define_Array64");
        sdf_ok(Sdf_Write_Array64(ch, "table", table.data(), start, rows * cols), "Sdf_Write_Array64");
        sdf_close(ch);
        sync_file(sp);
        drop_cache(sp);
    }
    s.sdf = timed([&] {
        int ch = sdf_open(sp, false);
        int64_t begin[3] = {2, 0, col}, end[3] = {2, rows - 1, col}, step[1] = {0}, count = 0, dims[8];
        int32_t tr[1] = {0};
        void* p = back.data();
        sdf_ok(Sdf_Read_Slice64(ch, "table", &p, begin, end, step, tr, &count, dims), "Sdf_Read_Slice64");
        if (count != rows) die("SDF slice count", static_cast<long>(count));
        sdf_close(ch);
    });
    check("SDF column");
    t.sdf = s.sdf;
    // The same read by a reader that takes no lock file: the open then
    // skips its wait for other processes' locks.
    Step u{"column, SDF reader with No_Read_Lock=Yes"};
    u.hdf5_target = 5;
    drop_cache(sp);
    sdf_ok(Sdf_Set_Opts("No_Read_Lock=Yes"), "Sdf_Set_Opts");
    u.sdf = timed([&] {
        int ch = sdf_open(sp, false);
        int64_t begin[3] = {2, 0, col}, end[3] = {2, rows - 1, col}, step[1] = {0}, count = 0, dims[8];
        int32_t tr[1] = {0};
        void* p = back.data();
        sdf_ok(Sdf_Read_Slice64(ch, "table", &p, begin, end, step, tr, &count, dims), "Sdf_Read_Slice64");
        sdf_close(ch);
    });
    sdf_ok(Sdf_Set_Opts("No_Read_Lock=No"), "Sdf_Set_Opts");
    check("SDF column");

    const std::string pp = file("table.raw");
    {
        int fd = ::open(pp.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
        write_all(fd, table.data(), table.size() * 8);
        ::fsync(fd);
        ::close(fd);
        drop_cache(pp);
    }
    s.posix = timed([&] {
        int fd = ::open(pp.c_str(), O_RDONLY);
        const size_t n = static_cast<size_t>(rows) * 8;
        if (::pread(fd, back.data(), n, static_cast<off_t>(col * rows * 8)) != static_cast<ssize_t>(n)) die("pread", errno);
        ::close(fd);
    });
    check("POSIX column");
    t.posix = u.posix = s.posix;

#ifdef ZELTRA_BENCH_HDF5
    // by_row: the table as HDF5 declares it, [rows][20], last index fastest,
    // so a column is strided; else [20][rows], a column contiguous as in SDF.
    auto h5_case = [&](bool by_row) {
        const std::string hp = file(by_row ? "table_r.h5" : "table_c.h5");
        std::vector<double> rowmajor;
        const void* src = table.data();
        if (by_row) {
            rowmajor.resize(table.size());
            for (int64_t i = 0; i < rows; i++)
                for (int64_t j = 0; j < cols; j++)
                    rowmajor[static_cast<size_t>(i * cols + j)] = table[static_cast<size_t>(j * rows + i)];
            src = rowmajor.data();
        }
        {
            hid_t f = h5_create(hp);
            hsize_t d[2] = {static_cast<hsize_t>(by_row ? rows : cols), static_cast<hsize_t>(by_row ? cols : rows)};
            hid_t space = H5Screate_simple(2, d, nullptr);
            hid_t ds = H5Dcreate2(f, "table", H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, H5P_DEFAULT, H5P_DEFAULT);
            h5_ok(H5Dwrite(ds, H5T_NATIVE_DOUBLE, H5S_ALL, H5S_ALL, H5P_DEFAULT, src), "H5Dwrite");
            H5Dclose(ds);
            H5Sclose(space);
            H5Fclose(f);
            sync_file(hp);
            drop_cache(hp);
        }
        std::fill(back.begin(), back.end(), 0.0);
        double secs = timed([&] {
            hid_t f = h5_open(hp);
            hid_t ds = H5Dopen2(f, "table", H5P_DEFAULT);
            hid_t space = H5Dget_space(ds);
            hsize_t start[2] = {by_row ? 0 : static_cast<hsize_t>(col), by_row ? static_cast<hsize_t>(col) : 0};
            hsize_t count[2] = {by_row ? static_cast<hsize_t>(rows) : 1, by_row ? 1 : static_cast<hsize_t>(rows)};
            h5_ok(H5Sselect_hyperslab(space, H5S_SELECT_SET, start, nullptr, count, nullptr), "H5Sselect_hyperslab");
            hsize_t m[1] = {static_cast<hsize_t>(rows)};
            hid_t mem = H5Screate_simple(1, m, nullptr);
            h5_ok(H5Dread(ds, H5T_NATIVE_DOUBLE, mem, space, H5P_DEFAULT, back.data()), "H5Dread");
            H5Sclose(mem);
            H5Sclose(space);
            H5Dclose(ds);
            H5Fclose(f);
        });
        check("HDF5 column");
        return secs;
    };
    s.hdf5 = u.hdf5 = h5_case(true);
    t.hdf5 = h5_case(false);
#endif
    results.push_back(s);
    results.push_back(u);
    results.push_back(t);
}

void Bench::appends() {
    const int k = static_cast<int>(scaled(1000, 10));
    const int each = 1000;
    std::vector<double> buf(each);
    auto fill = [&](int a) {
        for (int i = 0; i < each; i++) buf[static_cast<size_t>(i)] = a * 1000.0 + i;
    };
    Step s{"append " + std::to_string(k) + " x 1000 doubles"};
    s.hdf5_target = 2;

    const std::string sp = file("grow.sdf");
    s.sdf = timed([&] {
        int ch = sdf_open(sp, true);
        int64_t dims[2] = {1, 0};
        sdf_ok(Sdf_Define_Array64(ch, "grow", SDF_DBLE_T, 0, dims, nullptr, nullptr), "Sdf_Define_Array64");
        for (int a = 0; a < k; a++) {
            fill(a);
            sdf_ok(Sdf_Write_Array(ch, "grow", buf.data(), nullptr, each), "Sdf_Write_Array");
        }
        sdf_close(ch);
        sync_file(sp);
    });
    {
        int ch = sdf_open(sp, false);
        std::vector<double> all(static_cast<size_t>(k) * each);
        void* p = all.data();
        int64_t got = 0;
        sdf_ok(Sdf_Read_Array64(ch, "grow", &p, nullptr, 0, &got), "Sdf_Read_Array64");
        sdf_close(ch);
        if (got != int64_t{k} * each) die("SDF append count", static_cast<long>(got));
        for (size_t i = 0; i < all.size(); i += 997)
            if (all[i] != static_cast<double>(i / each) * 1000.0 + static_cast<double>(i % each)) die("SDF append data", static_cast<long>(i));
    }

    const std::string pp = file("grow.raw");
    s.posix = timed([&] {
        int fd = ::open(pp.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_APPEND, 0644);
        for (int a = 0; a < k; a++) {
            fill(a);
            write_all(fd, buf.data(), each * 8);
        }
        if (::fsync(fd) != 0) die("fsync", errno);
        ::close(fd);
    });

#ifdef ZELTRA_BENCH_HDF5
    const std::string hp = file("grow.h5");
    s.hdf5 = timed([&] {
        hid_t f = h5_create(hp);
        hsize_t zero[1] = {0}, unlimited[1] = {H5S_UNLIMITED}, chunk[1] = {each};
        hid_t space = H5Screate_simple(1, zero, unlimited);
        hid_t dcpl = H5Pcreate(H5P_DATASET_CREATE);
        H5Pset_chunk(dcpl, 1, chunk);
        hid_t ds = H5Dcreate2(f, "grow", H5T_NATIVE_DOUBLE, space, H5P_DEFAULT, dcpl, H5P_DEFAULT);
        h5_ok(ds, "H5Dcreate2");
        H5Pclose(dcpl);
        H5Sclose(space);
        hsize_t m[1] = {each};
        hid_t mem = H5Screate_simple(1, m, nullptr);
        for (int a = 0; a < k; a++) {
            fill(a);
            hsize_t size[1] = {static_cast<hsize_t>(a + 1) * each}, start[1] = {static_cast<hsize_t>(a) * each};
            h5_ok(H5Dset_extent(ds, size), "H5Dset_extent");
            hid_t fs = H5Dget_space(ds);
            H5Sselect_hyperslab(fs, H5S_SELECT_SET, start, nullptr, m, nullptr);
            h5_ok(H5Dwrite(ds, H5T_NATIVE_DOUBLE, mem, fs, H5P_DEFAULT, buf.data()), "H5Dwrite");
            H5Sclose(fs);
        }
        H5Sclose(mem);
        H5Dclose(ds);
        H5Fclose(f);
        sync_file(hp);
    });
#endif
    results.push_back(s);
}

}  // namespace

int main(int argc, char** argv) {
    Bench b;
    b.scale = argc > 1 ? std::atof(argv[1]) : 1.0;
    if (!(b.scale > 0)) {
        std::fprintf(stderr, "usage: sdf_bench [scale [directory [big,scalars,column,append]]]   (scale 1 = full size)\n");
        return 2;
    }
    std::string parent = argc > 2 ? argv[2] : "/tmp";
    std::string tmpl = parent + "/sdf-bench-XXXXXX";
    std::vector<char> t(tmpl.begin(), tmpl.end());
    t.push_back('\0');
    if (!::mkdtemp(t.data())) die("mkdtemp", errno);
    b.dir = t.data();
#ifdef ZELTRA_BENCH_HDF5
    std::printf("sdf_bench: scale %g, files in %s, HDF5 included\n", b.scale, b.dir.c_str());
#else
    std::printf("sdf_bench: scale %g, files in %s, built without HDF5\n", b.scale, b.dir.c_str());
#endif
    const std::string cases = argc > 3 ? std::string(",") + argv[3] + "," : ",big,scalars,column,append,";
    auto chosen = [&](const char* name) { return cases.find(std::string(",") + name + ",") != std::string::npos; };
    if (chosen("big")) b.big_array();
    if (chosen("scalars")) b.scalars();
    if (chosen("column")) b.column();
    if (chosen("append")) b.appends();
    report();
    std::error_code ec;
    std::filesystem::remove_all(b.dir, ec);
    return 0;
}
