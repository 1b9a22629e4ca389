/**
 * \file
 * tavo: shows that follow the stage, for programs in C and whatever calls C. docs/c-api.md is the guide.
 *
 * Handles. A tavo_show is a show that is open for reading and editing, a tavo_player one that is played. They are no
 * addresses: a handle that is null, closed or made up is refused with TAVO_BAD_HANDLE and does no harm. There may be
 * many shows; a process has one player at a time.
 *
 * Results. Every function that can fail returns a tavo_result, and writes to its out parameters only where that is
 * TAVO_OK. For any other but TAVO_END, tavo_last_error has the reason as one sentence. Nothing is thrown.
 *
 * Text is UTF-8 and ends with a null byte. Text in a struct belongs to the library and lives as long as is said there;
 * a char** parameter gets text of the caller's, to be freed with tavo_free.
 *
 * Threads. Every function may be called on any thread. Calls with the same show wait for each other, and so do calls
 * with a player and with its show, except where a function says "does not wait". A handle is closed when no other call
 * uses it.
 *
 * Real time. "Wait-free" functions take no lock, allocate nothing and make no system call: they may be called in an
 * audio callback. tavo_player_render has its own rule. All others may allocate and wait; those that read or write files
 * say so.
 *
 * Ticks count from the beginning of a song's data, ranges are half-open, and songs, bars and the like are numbered from
 * 0.
 *
 * Within a major version functions keep their meaning, structs their layout and constants their values. Structs that
 * begin with "size" may grow at their end: set size to sizeof the struct, and the rest to 0 for the defaults.
 */
#ifndef TAVO_TAVO_H
#define TAVO_TAVO_H

#include <stddef.h>
#include <stdint.h>

#include "tavo/version.h"

/** Makes a function visible outside the shared library; means nothing to a caller. */
#if defined(_WIN32) && defined(TAVO_BUILDING)
#define TAVO_API __declspec(dllexport)
#elif defined(__GNUC__)
#define TAVO_API __attribute__((visibility("default")))
#else
#define TAVO_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** A show that is open: a handle, not an address. At most 1023 are open at once, those of players included. */
typedef struct tavo_show tavo_show;
/** A show that is played: a handle, not an address. */
typedef struct tavo_player tavo_player;

/** What came of a call, TAVO_OK to TAVO_INTERNAL. */
typedef int32_t tavo_result;
enum {
    TAVO_OK = 0,           /**< it is done, and the out parameters are written */
    TAVO_END = 1,          /**< there is nothing more for now; no error */
    TAVO_REFUSED = 2,      /**< a command that is not possible now: nothing was done */
    TAVO_FAILED = 3,       /**< it could not be done */
    TAVO_BAD_HANDLE = 4,   /**< null, closed, or no handle */
    TAVO_BAD_ARGUMENT = 5, /**< a null pointer, a number out of range, words that mean nothing */
    TAVO_NOT_FOUND = 6,    /**< no such song, bar, place, version or file */
    TAVO_BUSY = 7,         /**< in use by another call, another player or another program */
    TAVO_NO_MEMORY = 8,    /**< no memory, or no room for another show that is open */
    TAVO_INTERNAL = 9      /**< a mistake of the library's */
};

/** Songs that there are none of. */
#define TAVO_NO_SONG UINT32_MAX

/* ---- The library ---- */

/** The library's version as TAVO_VERSION_NUMBER counts. Wait-free. */
TAVO_API uint32_t tavo_version_number(void);
/** The same as "0.1.0". Wait-free; the text is never freed. */
TAVO_API const char* tavo_version(void);

/** "busy" for TAVO_BUSY; "unknown" for what is no result. Wait-free; the text is never freed. */
TAVO_API const char* tavo_result_name(tavo_result result);

/** Why the last call of this thread failed that did, one sentence; empty before. It belongs to the thread, so that
 * threads that share a handle do not read each other's, and lives until the thread's next call that fails. Wait-free.
 */
TAVO_API const char* tavo_last_error(void);

/** Frees text that a char** parameter got; null is fine. */
TAVO_API void tavo_free(char* text);

/* ---- A show: reading ---- */

enum {
    TAVO_READ = 0,  /**< edits are made in memory, and cannot be saved */
    TAVO_CHANGE = 1 /**< nobody else may change the show meanwhile; edits can be saved */
};

/** How a show is opened; all 0 but the size are the defaults. */
typedef struct tavo_show_options {
    size_t size;         /**< sizeof the struct */
    uint32_t access;     /**< TAVO_READ or TAVO_CHANGE */
    const char* version; /**< of the edits: "1.4"; null for the one in use */
} tavo_show_options;

/** Opens the show directory `path`; options may be null. Reads files. Where the show is to be changed and another
 * program is changing it, waits for five seconds and then fails with TAVO_BUSY. */
TAVO_API tavo_result tavo_show_open(const char* path, const tavo_show_options* options, tavo_show** show);
/** Edits that were not saved are forgotten. TAVO_BUSY where another call uses it; the show of a player is closed with
 * that and refused here. */
TAVO_API tavo_result tavo_show_close(tavo_show* show);

/** Its title, which may be empty; the text lives as long as the show is open. */
TAVO_API tavo_result tavo_show_title(tavo_show* show, const char** title);
/** How many songs it has; that stays as long as it is open. */
TAVO_API tavo_result tavo_show_song_count(tavo_show* show, uint32_t* count);

/** A song of the show. */
typedef struct tavo_song {
    const char* number;         /**< "12a"; lives as long as the show is open */
    const char* title;          /**< the same */
    uint32_t start_tick;        /**< of its first bar, a pick-up included; not always 0 */
    uint32_t end_tick;          /**< the first tick after its last bar */
    uint32_t ticks_per_quarter; /**< 1 to 32767 */
    uint32_t bar_count;         /**< as written: a repeat is an edit and adds none */
    double seconds;             /**< as written, to the end of the last note */
    uint32_t attacca; /**< 0: a stop follows it; 1: the next song, without one; 2: the show passes this song over */
} tavo_song;

/** Songs are in show order. TAVO_NOT_FOUND beyond the last one. */
TAVO_API tavo_result tavo_show_song(tavo_show* show, uint32_t song, tavo_song* result);
/** TAVO_NOT_FOUND where the show has no song of that number. */
TAVO_API tavo_result tavo_show_find_song(tavo_show* show, const char* number, uint32_t* song);

/** A bar of a song, as written. */
typedef struct tavo_bar {
    const char* label;        /**< as printed; lives as long as the show is open */
    uint32_t start_tick;      /**< its first tick */
    uint32_t end_tick;        /**< the next bar's first, or the song's end */
    double seconds;           /**< from the song's beginning to the bar's, as written: without edits and once through */
    uint32_t meter_numerator; /**< the 6 of 6/8 */
    uint32_t meter_denominator; /**< the 8 of 6/8 */
    double quarters_per_minute; /**< the written tempo at its beginning */
} tavo_bar;

/** Bars are in the order of their ticks. TAVO_NOT_FOUND beyond the last one. */
TAVO_API tavo_result tavo_show_bar(tavo_show* show, uint32_t song, uint32_t bar, tavo_bar* result);

/** The tick of a place as musicians write it: "17", "17:3", "17:3+120", "t9600", "start", "end". TAVO_NOT_FOUND where
 * the song has no such place. */
TAVO_API tavo_result tavo_show_find_place(tavo_show* show, uint32_t song, const char* place, uint32_t* tick);
/** The place at a tick: "17:3". */
TAVO_API tavo_result tavo_show_describe_tick(tavo_show* show, uint32_t song, uint32_t tick, char** place);
/** Seconds from the song's beginning to a tick, as written. */
TAVO_API tavo_result tavo_show_seconds(tavo_show* show, uint32_t song, uint32_t tick, double* seconds);

/** An edit of a song, or one of its markers. */
typedef struct tavo_edit {
    /** By which the edit grammar names it, "remove --song 3 --id 4"; it keeps it from version to version. */
    uint32_t id;
    uint32_t start_tick; /**< its first tick */
    uint32_t end_tick;   /**< the first tick after it; the start where the edit has a place and no length */
    /* Text lives until edits are next listed with this handle. */
    const char* kind;  /**< "vamp", "repeat", "cut", "fermata", "caesura", "tempo scale", "marker", ... */
    const char* place; /**< "bars 12 to 16" */
    const char* value; /**< "3 times", a marker's text; may be empty */
} tavo_edit;

/** Reads the song's edits, markers among them, by place and then by kind, and counts them; tavo_show_edit_at gives them
 * as they were then. Reads the files of the versions once. */
TAVO_API tavo_result tavo_show_list_edits(tavo_show* show, uint32_t song, uint32_t* count);
/** TAVO_NOT_FOUND beyond the end of what was listed last. */
TAVO_API tavo_result tavo_show_edit_at(tavo_show* show, uint32_t index, tavo_edit* result);

/** What is odd about the show and was passed over or repaired, a line each; may be empty. */
TAVO_API tavo_result tavo_show_warnings(tavo_show* show, char** lines);

/* ---- A show: editing ---- */

/** Does what one line of the edit grammar says: "add vamp --song 3 --from 12 --to 15". `stage help edit` and
 * docs/arranger.md have the grammar. With a player's show a song that is not named is the one that is loaded, and the
 * music goes on. What the rules refuse changes nothing and fails with TAVO_FAILED. A player that keeps edits writes a
 * file. */
TAVO_API tavo_result tavo_show_do_edit(tavo_show* show, const char* line);
/** Takes back the last edit: a line for each edit that this changed. lines may be null. TAVO_FAILED where there is
 * none. */
TAVO_API tavo_result tavo_show_undo(tavo_show* show, char** lines);
/** Makes the edit again that was taken back last, likewise. */
TAVO_API tavo_result tavo_show_redo(tavo_show* show, char** lines);

enum {
    TAVO_MINOR = 0, /**< 1.4 becomes 1.5 */
    TAVO_MAJOR = 1  /**< 1.4 becomes 2.0 */
};
/** Saves the edits as the next version that nobody has, which is in use from then on. Writes files; a version that is
 * there is never touched. comment and version, "1.5", may be null. */
TAVO_API tavo_result tavo_show_save(tavo_show* show, uint32_t kind, const char* comment, char** version);

/** A saved version of the edits. */
typedef struct tavo_version_info {
    const char* version;    /**< "1.4"; text lives until versions are next listed with this handle */
    const char* file;       /**< its name in the show directory */
    const char* by;         /**< "anna@lx-pit"; may be empty */
    const char* comment;    /**< may be empty */
    const char* problem;    /**< why it cannot be read; else empty */
    int64_t saved_at;       /**< seconds since 1970, UTC; where that is not known, when the file was last written */
    uint32_t edit_count;    /**< in all songs, markers among them; 0 where it cannot be read */
    uint32_t unsaved_count; /**< changes in its journal that no version holds */
    uint32_t is_in_use;     /**< 1 for the one that opens */
} tavo_version_info;

/** Reads which versions there are, ascending, and counts them; tavo_show_version_at gives them as they were then. Reads
 * files. */
TAVO_API tavo_result tavo_show_list_versions(tavo_show* show, uint32_t* count);
/** TAVO_NOT_FOUND beyond the end of what was listed last. */
TAVO_API tavo_result tavo_show_version_at(tavo_show* show, uint32_t index, tavo_version_info* result);
/** What changed from one version to another, a line for each edit; empty where nothing did. A null version stands for
 * the edits as they are now. Reads files. */
TAVO_API tavo_result tavo_show_compare(tavo_show* show, const char* from, const char* to, char** lines);
/** Makes the edits those of a saved version, as one step that can be undone. Reads a file. */
TAVO_API tavo_result tavo_show_roll_back(tavo_show* show, const char* version);

/* ---- A player ---- */

enum {
    TAVO_EDITS_IN_MEMORY = 0, /**< edits are forgotten with the player; nothing is written beside the show */
    TAVO_EDITS_KEPT = 1,      /**< edits are in a journal until they are saved, and nobody else may change the show */
    TAVO_EDITS_REFUSED = 2    /**< edits are refused */
};

enum {
    /** Sound files are waited for, and playback is planned ahead as `stage render` does: for sound that nobody hears
     * yet. Otherwise a sound that is not read in time begins late. */
    TAVO_PLAYER_OFFLINE = 1,
    /** The click is part of the sound, as the settings may say as well. */
    TAVO_PLAYER_CLICK = 2,
    /** It sounds on every beat, and not only where a click is edited. */
    TAVO_PLAYER_CLICK_EVERYWHERE = 4,
    /** Rendering does not wait for the display's thread: what a display shows may be reported some calls later. */
    TAVO_PLAYER_DO_NOT_WAIT = 8
};

/** How a player is opened; all 0 but the size are the defaults. */
typedef struct tavo_player_options {
    size_t size;                /**< sizeof the struct */
    uint32_t frames_per_second; /**< 8000 to 96000; 0 for 48000 */
    uint32_t flags;             /**< TAVO_PLAYER_... */
    uint32_t editing;           /**< TAVO_EDITS_... */
    const char* sound_font;     /**< a file; null for the one that the show's settings choose */
    const char* version;        /**< of the edits; null for the one in use */
} tavo_player_options;

/** Opens the show directory `path` for playing; options may be null. No song is loaded. Reads files. TAVO_BUSY while
 * the process has another player. */
TAVO_API tavo_result tavo_player_open(const char* path, const tavo_player_options* options, tavo_player** player);
/** Its show is closed as well. TAVO_BUSY where another call uses either; so a callback cannot close its player. */
TAVO_API tavo_result tavo_player_close(tavo_player* player);
/** The show that is played, for reading and editing; the same handle every time, closed with the player. Wait-free. */
TAVO_API tavo_result tavo_player_show(tavo_player* player, tavo_show** show);

/** Does what a line of a render's script does, without its moment: "load 12a", "play", "exit", "seek 17:3", "tempo
 * 90%". docs/render.md has the table. It takes effect at the next frame that is rendered or, where another thread is
 * rendering, 256 frames later at most. TAVO_REFUSED for what is not possible now, TAVO_FAILED for what was tried in
 * vain, TAVO_BAD_ARGUMENT for what is no command. "edit", "undo", "redo" and "save" write files where edits are kept.
 */
TAVO_API tavo_result tavo_player_command(tavo_player* player, const char* line);
/** The same for a press that a person made: one that follows the same press within the time of the settings' press
 * guard is refused as a mistake. Time is the time that was rendered. */
TAVO_API tavo_result tavo_player_press(tavo_player* player, const char* line);

/** Renders the next frames, from -1 to 1, into both buffers. Blocks may have any size, and the sound does not depend on
 * it. One thread at a time: TAVO_BUSY for a second one. Does not wait for other calls; waits for the locks that they
 * hold for some assignments, for the display's thread (see TAVO_PLAYER_DO_NOT_WAIT), and allocates where events are
 * reported: so for a thread that renders ahead of its device, or for a callback whose host gives it some room. The
 * callback of tavo_player_set_callback runs in it, after the sound is there. */
TAVO_API tavo_result tavo_player_render(tavo_player* player, float* left, float* right, uint32_t frames);

/** A stereo pair: buffers of the caller's with room for as many frames as are rendered. */
typedef struct tavo_pair {
    float* left;  /**< of the left channel */
    float* right; /**< of the right one */
} tavo_pair;

/** By how many pairs the sound leaves, 2 at least: 0 is "main", 1 is "click", and one follows for each output group of
 * the show's settings that has a pair of its own. They stay the same until the player is closed. Wait-free. */
TAVO_API tavo_result tavo_player_pair_count(tavo_player* player, uint32_t* count);
/** The pair's name: "main", "click" or that of its group. The text is the player's and ends with it. TAVO_NOT_FOUND
 * from the number of pairs on. Does not wait. */
TAVO_API tavo_result tavo_player_pair_name(tavo_player* player, uint32_t index, const char** name);
/** As tavo_player_render, into the first `count` pairs, 1 or more. They are late by the same frames, and the main pair
 * is that of tavo_player_render. What leaves by a pair that is not given is not heard; one that the call before was not
 * given begins with tavo_player_latency frames of silence. The buffers must not overlap. */
TAVO_API tavo_result tavo_player_render_pairs(tavo_player* player, const tavo_pair* pairs, uint32_t count,
                                              uint32_t frames);
/** Frames by which the sound is later than what is reported of it: what the limiter looks ahead. Wait-free. */
TAVO_API tavo_result tavo_player_latency(tavo_player* player, uint32_t* frames);

/** The last tick that playback has begun, and the frames rendered since the player was opened. Either may be null.
 * Wait-free. */
TAVO_API tavo_result tavo_player_position(tavo_player* player, uint32_t* tick, int64_t* frame);

enum {
    TAVO_MOTION_NO_SONG = 0,    /**< none is loaded yet */
    TAVO_MOTION_STOPPED = 1,    /**< "play" begins where the playhead is */
    TAVO_MOTION_PAUSED = 2,     /**< also at a caesura */
    TAVO_MOTION_PLAYING = 3,    /**< at full level */
    TAVO_MOTION_HOLDING = 4,    /**< in a fermata: time is stopped and what sounds sounds on */
    TAVO_MOTION_FADING = 5,     /**< playing at a level that a fade lowers */
    TAVO_MOTION_COUNTING_IN = 6 /**< beats are counted in, and the song has not begun */
};

/** Where playback is, at one moment. */
typedef struct tavo_status {
    uint32_t motion;            /**< TAVO_MOTION_... */
    uint32_t song;              /**< TAVO_NO_SONG before one is loaded */
    uint32_t tick;              /**< the last that playback has begun */
    uint32_t beats_to_count_in; /**< that are left, the present one among them; 0 where none are counted in */
    int64_t frame;              /**< frames rendered since the player was opened */
    int32_t transposition;      /**< semitones that the operator has set */
    uint32_t is_vamp_lamp_on;   /**< 1 where a vamp or fermata waits to be left, as reported last */
    double tempo_scale;         /**< that the operator has set; 1 is as written */
    uint64_t limited_frames;    /**< that would have been louder than full scale */
} tavo_status;

/** Where playback is. Waits for flow control for a moment. */
TAVO_API tavo_result tavo_player_status(tavo_player* player, tavo_status* status);

/* ---- What a player reports ---- */

enum {
    /* What playback does, at its exact frame. */
    TAVO_EVENT_SONG = 1,      /**< a song was put in; text: its title */
    TAVO_EVENT_STARTED = 2,   /**< time goes on */
    TAVO_EVENT_STOPPED = 3,   /**< time stands still; not where a fermata holds */
    TAVO_EVENT_PUT = 4,       /**< the playhead was put here and is not moving */
    TAVO_EVENT_JUMP = 5,      /**< from from_tick, which has not sounded, to tick; number: TAVO_JUMP_... */
    TAVO_EVENT_BEAT = 6,      /**< playback arrives at a beat; number: 1 for the first of a bar, else 0 */
    TAVO_EVENT_HOLD = 7,      /**< a fermata holds just short of tick */
    TAVO_EVENT_RELEASE = 8,   /**< it was released: playback goes on at tick */
    TAVO_EVENT_CAESURA = 9,   /**< playback has stopped at the caesura */
    TAVO_EVENT_SONG_END = 10, /**< the song's end is reached; another song, or a stop, follows */
    TAVO_EVENT_COUNT_IN = 11, /**< number: beats left with this one */
    TAVO_EVENT_CUE = 12,      /**< text: "osc ADDRESS ARGUMENTS to TARGET", "effect FILE", "ambience FILE" */
    TAVO_EVENT_FADED = 13,    /**< a fade has arrived */
    /* What a display shows, when it has changed; up to 33 ms later. */
    TAVO_EVENT_STATUS = 32,    /**< text: "Vamp", "Repeat", "Skip", "Caesura", ..., empty for none; number: its count */
    TAVO_EVENT_VAMP_LAMP = 33, /**< number: 1 where a vamp or fermata waits to be left, else 0 */
    TAVO_EVENT_BAR = 34,       /**< text: "17:3" */
    TAVO_EVENT_METER = 35,     /**< text: "6/8" */
    TAVO_EVENT_CLICK = 36,     /**< number: thirty-second notes a click */
    TAVO_EVENT_KEY = 37,       /**< text: "Eb major", as it sounds; empty in a song without keys */
    TAVO_EVENT_TEMPO = 38,     /**< text: clicks a minute that sound, "104.5" */
    TAVO_EVENT_TEMPO_SCALE = 39,   /**< text: "90%" of the written tempo */
    TAVO_EVENT_TARGET_TEMPO = 40,  /**< number: clicks a minute */
    TAVO_EVENT_TRANSPOSITION = 41, /**< number: semitones */
    TAVO_EVENT_PAGE = 42,          /**< number: the score's page; 0 before the first */
    TAVO_EVENT_MARKER = 43,        /**< text, and tick where it stands; empty for none */
    TAVO_EVENT_TITLE = 44,         /**< text: the song's title */
    TAVO_EVENT_NO_NEXT_SONG = 45,  /**< the show is over */
    /* The host's. */
    TAVO_EVENT_QUIT = 64, /**< the command "quit" */
    TAVO_EVENT_LOST = 65  /**< number: events that nobody fetched in time and that were dropped here */
};

/** Why playback jumped: a vamp or repeat went round, a seek, a cut. */
enum { TAVO_JUMP_LOOP = 0, TAVO_JUMP_SEEK = 1, TAVO_JUMP_CUT = 2 };

/** Something that happened, or that a display shows anew. */
typedef struct tavo_event {
    uint32_t kind;      /**< TAVO_EVENT_... */
    uint32_t tick;      /**< of the song */
    int64_t frame;      /**< since the player was opened */
    uint32_t from_tick; /**< of a jump the tick that it leaves, of a song that was put in the tick in the one before */
    int32_t number;     /**< as its kind says; else 0 */
    uint32_t song;      /**< TAVO_NO_SONG before one is loaded */
    const char* text;   /**< lives until the next event is fetched, or the callback returns; never null */
} tavo_event;

/** "jump" for TAVO_EVENT_JUMP, as docs/live.md names it; "unknown" for what is no event. Wait-free. */
TAVO_API const char* tavo_event_name(uint32_t kind);

/** Fetches the oldest event; TAVO_END where there is none. Of more than 65536 the oldest are dropped. One thread
 * fetches, or they agree among themselves; does not wait for other calls. */
TAVO_API tavo_result tavo_player_next_event(tavo_player* player, tavo_event* event);

/** `event` and its text live until this returns; `user` is what tavo_player_set_callback was given. */
typedef void (*tavo_event_callback)(const tavo_event* event, void* user);
/** Events go to the callback, in order and one at a time, and none are left to be fetched; a null one ends that. It is
 * called at the end of whatever call made them, mostly tavo_player_render, on that call's thread and with no lock held:
 * it may call everything but tavo_player_close. It must not throw. When this returns, the callback before runs no more,
 * unless this was called in it. */
TAVO_API tavo_result tavo_player_set_callback(tavo_player* player, tavo_event_callback callback, void* user);

/* ---- Flow states ---- */

/** All that decides how playback goes on from here, as one line of JSON: place, loops with their passes, holds,
 * countdowns. Song and edits are not in it, and neither is whether anything plays. TAVO_FAILED before a song is loaded.
 */
TAVO_API tavo_result tavo_player_take_state(tavo_player* player, char** state);
/** Puts playback where a state was taken, in the same song with the same edits; the song is loaded where it is not.
 * Playback is stopped, and "play" goes on. A state that does not fit is refused and changes nothing but the song. */
TAVO_API tavo_result tavo_player_put_state(tavo_player* player, const char* state);

/* ---- Edits that a crash left ---- */

/** Edits that an earlier player kept and nobody saved, a line each; empty where there are none. Edits are refused
 * before one of the next two. Only where edits are kept. */
TAVO_API tavo_result tavo_player_left_edits(tavo_player* player, char** lines);
/** Makes them again. Writes a file. */
TAVO_API tavo_result tavo_player_recover_edits(tavo_player* player);
/** Forgets them. Writes a file. */
TAVO_API tavo_result tavo_player_discard_edits(tavo_player* player);

/* ---- Rendering whole songs ---- */

/** What is rendered, and how; all 0 but the size are the defaults. */
typedef struct tavo_render_options {
    size_t size;                /**< sizeof the struct */
    uint32_t frames_per_second; /**< as of a player */
    uint32_t flags;             /**< TAVO_PLAYER_CLICK, TAVO_PLAYER_CLICK_EVERYWHERE */
    const char* first_song;     /**< number; null for the show's first */
    const char* last_song;      /**< number; null for the same one */
    const char* from;           /**< a place of the first song; null for its beginning */
    const char* to;             /**< a place of the last song; null for its end */
    const char* script;         /**< the text of a script; null for an automatic operator, who leaves vamps and holds */
    const char* sound_font;     /**< a file; null for the one that the show's settings choose */
    /** Called on the calling thread, in order; either may be null. A result other than 0 ends the render with TAVO_END.
     */
    int (*on_sound)(const float* left, const float* right, uint32_t frames, void* user);
    int (*on_trace)(const char* line, void* user); /**< docs/trace.md has the lines; without their ends */
    void* user;                                    /**< for the two callbacks */
} tavo_render_options;

/** Does what `stage render` does, to the sample: plays songs with an operator, as fast as the machine can. remarks, a
 * line for each reason why it ended where it did, may be null. Reads files. TAVO_BUSY while the process has a player.
 */
TAVO_API tavo_result tavo_render(const char* path, const tavo_render_options* options, char** remarks);

#ifdef __cplusplus
}
#endif

#endif
