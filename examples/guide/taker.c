/* Takes the unread security events: printed first, then acknowledged. A program of its own, which
 * writes none of the logs. */
#include <korx/path.h>
#include <korx/reader.h>
#include <stdio.h>

int main(void) {
    char path[300];
    char directory[256];
    korx_reader* reader;
    korx_reader_error error;
    korx_record record;
    int is_done;

    if (KORX_GetLogPath(directory, sizeof directory) != KORX_OK)
        return 1;
    snprintf(path, sizeof path, "%s/korx_safe.log", directory);
    if (korx_reader_open(path, KORX_LOG_AUTO, NULL, &reader, &error) != KORX_READER_OK) {
        fprintf(stderr, "%s\n", error.text);
        return 1;
    }
    while (korx_reader_next_unread(reader, &record))
        printf("%.*s\n", (int) record.length, record.text);

    /* Not delivered, not acknowledged: the events are handed out again the next time. */
    is_done = fflush(stdout) == 0 && korx_reader_ack(reader, &error) == KORX_READER_OK;
    korx_reader_close(reader);
    return is_done ? 0 : 1;
}
