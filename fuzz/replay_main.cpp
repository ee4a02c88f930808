// Replays every file of a corpus folder through LLVMFuzzerTestOneInput, so
// that CI checks the seeds without a fuzzing engine.
#include <dirent.h>
#include <sys/stat.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const *Data, size_t Size);

static int ReplayPath(std::string const &Path)
{
    struct stat Info;
    if (stat(Path.c_str(), &Info) != 0) {
        fprintf(stderr, "cannot open %s\n", Path.c_str());
        return 1;
    }
    if (S_ISDIR(Info.st_mode)) {
        DIR *Dir = opendir(Path.c_str());
        if (!Dir) return 1;
        std::vector<std::string> Names;
        while (dirent *Entry = readdir(Dir)) {
            if (Entry->d_name[0] != '.') Names.push_back(Entry->d_name);
        }
        closedir(Dir);
        int Count = 0;
        for (std::string const &Name : Names) {
            if (ReplayPath(Path + "/" + Name) != 0) return 1;
            ++Count;
        }
        return 0;
    }
    FILE *File = fopen(Path.c_str(), "rb");
    if (!File) return 1;
    std::vector<uint8_t> Bytes((size_t)Info.st_size);
    size_t Read = Bytes.empty() ? 0 : fread(Bytes.data(), 1, Bytes.size(), File);
    fclose(File);
    LLVMFuzzerTestOneInput(Bytes.data(), Read);
    return 0;
}

int main(int ArgumentCount, char **Arguments)
{
    int Replayed = 0;
    for (int Index = 1; Index < ArgumentCount; ++Index) {
        if (ReplayPath(Arguments[Index]) != 0) return 1;
        ++Replayed;
    }
    printf("replayed %d corpus path(s)\n", Replayed);
    return 0;
}
