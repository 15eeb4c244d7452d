/* Replaces a file without anybody seeing half of it, and runs a program without a shell. */
#include <korx/basic.h>
#include <stdio.h>

int main(int argc, char** argv) {
    char file[128] = "/opt/veltra/zelk/active.conf";
    char program[] = "cksum";
    char* command[] = {program, file, NULL};
    uint32_t result;

    if (argc != 2 || KORX_OrxLogInit(80101, "zelk") != KORX_OK)
        return 1;
    LOG_FileInit();

    /* The lengths are there for old callers: nobody looks at them. */
    result = KORXFS_CopyFile(argv[1], 0, file, ORXFS_OVERWRITE, 0);
    if (result == ORXFS_ERR_NOT_EXIST)
        fprintf(stderr, "there is no %s\n", argv[1]);
    if (result != KORX_OK)
        return 1;

    /* A vector: no shell reads it, so the name may hold anything. */
    if (KORX_SystemExecvp(command) != 0)
        return 1;
    /* A command line, split at blanks: refused with "; rm -rf /" and the like in it. */
    return KORX_Execvp("test -s /opt/veltra/zelk/active.conf", " ") == 0 ? 0 : 1;
}
