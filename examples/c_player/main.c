/* A host in C: lists a song's bars, then is device and operator of it. The sound goes nowhere; what happens is printed.
 */
#include <stdio.h>
#include <string.h>

#include <tavo/tavo.h>

enum { BLOCK_FRAMES = 512, RATE = 48000, MOST_SECONDS = 120 };

static int fail(const char* what) {
    fprintf(stderr, "%s: %s\n", what, tavo_last_error());
    return 1;
}

static int list_bars(tavo_show* show, uint32_t song) {
    tavo_song info;
    uint32_t i;
    if (tavo_show_song(show, song, &info) != TAVO_OK) return fail("the song");
    printf("song %s, %s: %u bars\n", info.number, info.title, (unsigned)info.bar_count);
    for (i = 0; i < info.bar_count && i < 3; ++i) {
        tavo_bar bar;
        if (tavo_show_bar(show, song, i, &bar) != TAVO_OK) return fail("the bar");
        printf("  bar %s at tick %u, %.2f s, %u/%u, tempo %.0f\n", bar.label, (unsigned)bar.start_tick, bar.seconds,
               (unsigned)bar.meter_numerator, (unsigned)bar.meter_denominator, bar.quarters_per_minute);
    }
    return 0;
}

/* Leaves each vamp after its first return, and goes on from holds and caesuras at once. */
static int answer(tavo_player* player, const tavo_event* event) {
    const char* line = NULL;
    if (event->kind == TAVO_EVENT_JUMP && event->number == TAVO_JUMP_LOOP) line = "exit";
    if (event->kind == TAVO_EVENT_HOLD) line = "exit";
    if (event->kind == TAVO_EVENT_CAESURA) line = "continue";
    if (line != NULL && tavo_player_command(player, line) != TAVO_OK) return fail(line);
    return 0;
}

static int play(tavo_player* player) {
    static float left[BLOCK_FRAMES];
    static float right[BLOCK_FRAMES];
    tavo_event event;
    int block;
    for (block = 0; block < MOST_SECONDS * RATE / BLOCK_FRAMES; ++block) {
        if (tavo_player_render(player, left, right, BLOCK_FRAMES) != TAVO_OK) return fail("rendering");
        while (tavo_player_next_event(player, &event) == TAVO_OK) {
            if (event.kind >= TAVO_EVENT_JUMP && event.kind <= TAVO_EVENT_CUE && event.kind != TAVO_EVENT_BEAT)
                printf("%6.2f s  %s at tick %u%s%s\n", (double)event.frame / (double)RATE, tavo_event_name(event.kind),
                       (unsigned)event.tick, event.text[0] == '\0' ? "" : ": ", event.text);
            if (event.kind == TAVO_EVENT_SONG_END) return 0;
            if (answer(player, &event) != 0) return 1;
        }
    }
    fprintf(stderr, "the song does not end\n");
    return 1;
}

int main(int argc, char** argv) {
    tavo_player_options options;
    tavo_player* player = NULL;
    tavo_show* show = NULL;
    uint32_t song = 0;
    char line[64];
    int result;
    if (argc != 3 || strlen(argv[2]) > 32) {
        fprintf(stderr, "usage: %s SHOW SONG, with tavo %s\n", argv[0], tavo_version());
        return 2;
    }
    memset(&options, 0, sizeof options);
    options.size = sizeof options;
    options.frames_per_second = RATE;
    options.flags = TAVO_PLAYER_OFFLINE;
    if (tavo_player_open(argv[1], &options, &player) != TAVO_OK) return fail("opening the show");
    tavo_player_show(player, &show);
    if (tavo_show_find_song(show, argv[2], &song) != TAVO_OK) return fail("finding the song");
    result = list_bars(show, song);
    sprintf(line, "load %s", argv[2]);
    if (result == 0 && tavo_player_command(player, line) != TAVO_OK) result = fail(line);
    if (result == 0 && tavo_player_command(player, "play") != TAVO_OK) result = fail("play");
    if (result == 0) result = play(player);
    tavo_player_close(player);
    return result;
}
