// A C++ program built outside the tree through find_package(ZeltraSDF): it
// writes a 2-D array with units, reads it back after a reopen, checks that
// the list of names holds it, and deletes the file. Exit 0 only when all of
// it worked; the path of the file comes as the first argument.
#include <sdf.h>
#include <zutil.h>

#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

namespace {

bool check(bool ok, const char* what) {
    if (!ok) std::fprintf(stderr, "cxx_consumer: %s failed\n", what);
    return ok;
}

bool writeFile(const char* path, const std::vector<int32_t>& table) {
    int ch = -1;
    return check(Sdf_Open(&ch, path, "BINARY", "FRESH", "WRITE") == 0, "open for writing") &&
           check(Sdf_Define_Arr2D(ch, "table", SDF_INT_T, 0, 3, 2, "N", "loads") == 0, "define") &&
           check(Sdf_Write_Arr2D(ch, "table", table.data(), 0, 0, 6) == 0, "write") &&
           check(Sdf_Close(ch, "KEEP") == 0, "close");
}

bool readFile(const char* path, const std::vector<int32_t>& table) {
    int ch = -1;
    if (!check(Sdf_Open(&ch, path, "BINARY", "OLD", "READ") == 0, "reopen")) return false;
    std::vector<int32_t> back(6, -1);
    void* into = back.data();
    int32_t nread = 0;
    char* units = nullptr;
    char** names = nullptr;
    int count = 0;
    bool ok = check(Sdf_Read_Arr2D(ch, "table", &into, 0, 0, 6, &nread) == 0 && nread == 6, "read") &&
              check(back == table, "values") &&
              check(Sdf_Get_Units(ch, "table", &units) == 0 && std::string(units) == "N", "units") &&
              check(Sdf_List(ch, "*", &names, &count) == 0 && count == 1 &&
                        std::strcmp(names[0], "table") == 0, "list");
    Sdf_Free(units);
    Sdf_Free(names);
    return check(Sdf_Close(ch, "KEEP") == 0, "close after reading") && ok;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc != 2 || !check(ZU_version() != nullptr, "ZU_version")) return 1;
    const std::vector<int32_t> table{1, 2, 3, 40, 50, 60};
    if (!writeFile(argv[1], table) || !readFile(argv[1], table)) return 1;
    int ch = -1;
    return Sdf_Open(&ch, argv[1], "BINARY", "OLD", "WRITE") == 0 && Sdf_Close(ch, "DELETE") == 0 ? 0 : 1;
}
