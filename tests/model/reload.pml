/* SPDX-License-Identifier: Apache-2.0
 *
 * The life of the policy's files as a protocol: an administrator who rewrites the policy at any
 * moment, the daemon that answers each close of it, crashes that roll it back, kills and power cuts
 * between any two steps, and the repair before each start. What is held, whenever everything is
 * quiet and the daemon is up:
 *
 *   - a good policy is in force, once one was good;
 *   - a good policy that was written to its end is in force, if nothing took its place afterwards:
 *     another rewrite, or the roll-back of a crash;
 *
 * and always: no backup is restored that does not load.
 *
 * A step is named after the function that takes it (android/vus/policy_files.cpp,
 * policy_restore.cpp, policy_crash.cpp, vu_service_watcher.cpp, tools/vusctl/policy_repair.cpp). What
 * is not in here, docs/reliability.md says.
 *
 * Mutants, in each of which spin has to find a violation:
 *   UNCONDITIONAL_RESTORE   the backup is put over whatever lies there
 *   NO_REPAIR               the daemon starts with what lies there
 *   WRITES_DURING_START     somebody writes between the repair's last look and the watch (a known limit)
 */

#ifndef REWRITES
#define REWRITES 3
#endif
#ifndef KILLS
#define KILLS 2
#endif
#ifndef CRASHES
#define CRASHES 1
#endif
#ifndef LOSSES
#define LOSSES 1
#endif

/* Texts. From FIRST on they load; each rewrite has another. */
#define EMPTY 0 /* truncated: by a writer, or by whoever was cut off */
#define MIXED 1 /* two wrote one over the other's */
#define BAD 2
#define FIRST 3
#define loads(t) ((t) >= FIRST)
#define written_over(old, t) ((old) == EMPTY -> (t) : MIXED)

/* Files, by inode: the repair replaces the policy's, and a writer may have the old one open. */
#define FILES 3
#define NO_FILE 9
byte text[FILES] = FIRST;
byte policy = 0;
byte rejected_file = NO_FILE;
byte backup = EMPTY;
bool was_good = false; /* a load was, and was backed up: from here on much is promised */

byte writer_at = NO_FILE;
bool leased = false; /* the daemon has a lease on the policy: whoever opens it waits */

/* What inotify keeps for the watcher. */
bool watching = false;
byte closes = 0;
bool lost = false;
#define MOST_CLOSES 6

byte in_force = EMPTY;
bool idle = false;     /* the watcher waits for an event */
bool starting = false; /* between the repair's last look and the watch */
byte newest = EMPTY;   /* the good policy that has to be in force; EMPTY: none in particular */

bool killed = false;
bool writer_cut = false;
bool crashed = false;

/* With REACHED, spin has to find a way to that point: what nothing leads to proves nothing. */
#define CHANGED 1
#define CAME_IN_BETWEEN 2
#define LOST_AND_ECHO 3
#define REFUSED 4
#define RENAMED_BACK 5
#define ROLLED_BACK_TWICE 6
#define ALL_SPENT 7
#ifdef REACHED
#define reach(point) assert(point != REACHED)
#else
#define reach(point) skip
#endif

byte rewrites = REWRITES;
byte kills = KILLS;
byte crashes = CRASHES;
byte losses = LOSSES;

#ifdef WRITES_DURING_START
#define may_write true
#else
#define may_write (!starting)
#endif

/* A file that was open for writing is closed: the watcher hears of it, or there was no room. */
inline closed() {
    if
    :: watching && closes < MOST_CLOSES -> closes++
    :: watching && losses > 0 -> losses--; lost = true
    :: watching && closes == MOST_CLOSES -> lost = true
    :: !watching -> skip
    fi
}

/* ---- The administrator: open with O_TRUNC, write, close. ---- */

active proctype administrator() {
    byte t;
    byte next = FIRST + 1;
end_writing:
    do
    :: atomic { rewrites > 0 && may_write -> rewrites-- }
        {
            if
            :: t = EMPTY /* killed before the write, and so closed */
            :: t = BAD
            :: atomic { t = next; next++ }
            fi;
            atomic {
                !leased && may_write ->
                writer_at = policy;
                text[writer_at] = EMPTY;
                newest = EMPTY
            }
            if
            :: atomic { t != EMPTY && may_write -> text[writer_at] = written_over(text[writer_at], t) }
            :: t == EMPTY
            fi;
            atomic {
                may_write ->
                if
                :: writer_at == policy ->
                    if
                    :: loads(t) && text[policy] == t -> newest = t
                    :: else
                    fi;
                    closed()
                :: else /* a file that has the policy's name no more */
                fi;
                writer_at = NO_FILE;
                t = EMPTY
            }
        } unless { atomic { writer_cut -> writer_cut = false; writer_at = NO_FILE; t = EMPTY } }
    od
}

/* ---- What happens to the daemon. A power cut ends the writer, too. ---- */

active proctype misfortune() {
end_of_it:
    do
    :: atomic { kills > 0 && !killed -> kills--; killed = true }
    :: atomic { kills > 0 && !killed && writer_at != NO_FILE && !writer_cut ->
           kills--; killed = true; writer_cut = true }
    :: atomic { crashes > 0 && watching && !killed -> crashes--; crashed = true }
    od
}

/* ---- PolicyFiles ---- */

inline backUp(loaded) {
    backup = EMPTY;
    atomic { backup = loaded; was_good = true }
}

inline loadPolicy() {
    atomic {
        loaded = text[policy];
        in_force = loaded
    }
}

inline putBackupInForce() {
    if
    :: loads(backup) -> in_force = backup
    :: else
    fi
}

inline fill(t) {
    text[policy] = written_over(EMPTY, EMPTY);
    text[policy] = written_over(text[policy], t);
    atomic { leased = false; closed() }
}

/* Restore::run(): outcome. */
inline restoreOver(rejected, t) {
#ifdef UNCONDITIONAL_RESTORE
    before = closes;
    fill(t);
    outcome = kDone
#else
    /* lookForOthers(): a lease, while nobody else has the file open */
    if
    :: atomic { writer_at == policy -> outcome = kBeingWritten }
    :: atomic { writer_at != policy -> leased = true };
        if
        :: atomic { text[policy] != rejected ->
               outcome = (closes == 0 -> kChanged : kBeingWritten); leased = false }
        :: atomic { text[policy] == rejected -> leased = false };
            /* write(): somebody may have come in between; our own close asks again */
            if
            :: atomic { writer_at == policy -> outcome = kBeingWritten; closed(); reach(CAME_IN_BETWEEN) }
            :: atomic { writer_at != policy -> leased = true };
                if
                :: atomic { text[policy] != rejected ->
                       outcome = kBeingWritten; leased = false; closed() }
                :: atomic { text[policy] == rejected -> before = closes };
                    fill(t);
                    outcome = kDone
                fi
            fi
        fi
    fi
#endif
}

/* True, in answered, but for a policy of whose close nothing will be heard. */
inline restoreBackup() {
    atomic { t = backup; assert(!was_good || loads(t)) };
    restoreOver(loaded, t);
    atomic {
        answered = true;
        if
        :: outcome == kDone -> echoes = before + 1; echoed = t
        :: outcome == kBeingWritten ->
            if
            :: closes == 0 -> putBackupInForce()
            :: else
            fi
        :: outcome == kChanged -> answered = false; reach(CHANGED)
        fi
    }
}

inline isExpected() {
    if
    :: echoes == 0 -> expected = false
    :: else ->
        expected = true;
        if
        :: event_lost -> echoes = (echoes < closes -> echoes : closes); reach(LOST_AND_ECHO)
        :: else -> echoes--
        fi
    fi
}

/* What is read no more makes no difference. */
inline forget() {
    loaded = 0; t = 0; before = 0; attempts = 0; outcome = kDone;
    expected = false; answered = false; event_lost = false;
    if
    :: echoes == 0 -> echoed = EMPTY
    :: else
    fi
}

inline reload() {
    atomic { isExpected(); attempts = 0; answered = false };
    do
    :: attempts == 3 || answered -> break
    :: else ->
        loadPolicy();
        if
        :: loads(loaded) ->
            if
            :: atomic { expected && (loaded == echoed || closes > 0) -> answered = true }
            :: else ->
                atomic { echoes = 0; echoed = EMPTY };
                backUp(loaded);
                answered = true
            fi
        :: else ->
            restoreBackup();
            atomic { expected = false; attempts++ }
        fi
    od;
    if
    :: atomic { !answered -> putBackupInForce(); forget() }
    :: atomic { answered -> forget() }
    fi
}

inline loadAtStart() {
    loadPolicy();
    if
    :: loads(loaded) -> backUp(loaded)
    :: else
    fi;
    atomic { loaded = 0; n = 0 }
}

/* A crash within the handler begins again, by plain calls: rollBackPlainly(). */
inline rollBackAfterCrash() {
    atomic { leased = false; idle = false; newest = EMPTY };
    again = true;
roll_back:
    t = backup;
    if
    :: again -> again = false; goto roll_back
    :: true
    fi;
    atomic { text[policy] = EMPTY; newest = EMPTY };
    if
    :: again -> again = false; goto roll_back
    :: true
    fi;
    atomic { text[policy] = written_over(text[policy], t); newest = EMPTY };
    if
    :: again -> again = false; goto roll_back
    :: atomic { !again -> reach(ROLLED_BACK_TWICE) }
    :: again
    fi
}

/* ---- vusctl policy repair: Repair::run() ---- */

inline unused_file(n) {
    if
    :: policy != 0 && writer_at != 0 -> n = 0
    :: policy != 1 && writer_at != 1 -> n = 1
    :: policy != 2 && writer_at != 2 -> n = 2
    fi
}

inline repair_policy() {
    skip;
look:
    if
    :: atomic { loads(text[policy]) -> starting = true }
    :: atomic { !loads(text[policy]) && !loads(backup) -> reach(REFUSED) };
        /* refused: the daemon is not started, and is tried again */
end_refused:
        atomic { loads(text[policy]) || loads(backup) -> goto look }
    :: atomic { !loads(text[policy]) && loads(backup) -> unused_file(n); text[n] = backup };
        rejected_file = policy; /* keep_rejected() */
        if
        :: atomic { loads(text[policy]) -> starting = true }
        :: !loads(text[policy]);
            atomic { policy = n; starting = true };
            atomic { /* what was written in that very moment has the second name */
                if
                :: loads(text[rejected_file]) -> policy = rejected_file; reach(RENAMED_BACK)
                :: else
                fi
            }
        fi;
        rejected_file = NO_FILE
    fi
}

/* ---- The machine: what is started, in which order, and again after each end ---- */

mtype = { kDone, kBeingWritten, kChanged };

active proctype daemon() {
    byte loaded, t, n, before, attempts;
    byte echoes, echoed;
    bool expected, answered, event_lost, again;
    mtype outcome;

start:
    {
#ifndef NO_REPAIR
        repair_policy();
#endif
        starting = true;
        loadAtStart();
        {
            atomic { watching = true; starting = false };
            /* readFileChangeEvent() */
end_waiting:
            do
            :: atomic { closes > 0 -> closes--; event_lost = false; idle = false }; reload()
            :: atomic { lost -> lost = false; event_lost = true; idle = false }; reload()
            :: atomic { closes == 0 && !lost && !idle -> idle = true }
            od
        } unless { crashed };
        rollBackAfterCrash()
    } unless { killed };
    atomic {
        /* The kernel closes and forgets what was the process's. */
        killed = false; crashed = false;
        /* Between its two renames a repair has both: the second name keeps what is lost here. */
        if
        :: rejected_file != NO_FILE && policy != rejected_file -> newest = EMPTY
        :: else
        fi;
        watching = false; starting = false; idle = false; leased = false;
        closes = 0; lost = false;
        in_force = EMPTY;
        rejected_file = NO_FILE;
        loaded = 0; t = 0; n = 0; before = 0; attempts = 0; echoes = 0; echoed = 0;
        expected = false; answered = false; event_lost = false; again = false; outcome = kDone
    };
    goto start
}

/* ---- What is held ---- */

#define quiet (idle && closes == 0 && !lost && writer_at == NO_FILE && !crashed && !killed)

active proctype held() {
end_held:
    if
    :: atomic { quiet && was_good && !loads(in_force) -> assert(false) }
    :: atomic { quiet && newest != EMPTY && in_force != newest -> assert(false) }
#ifdef REACHED
    :: atomic { quiet && rewrites + kills + crashes + losses == 0 && newest != EMPTY -> reach(ALL_SPENT) }
#endif
    fi
}
