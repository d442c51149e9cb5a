# Dictionaries, strings, JSON and threads, with output that depends only on
# the input: every figure printed is a count, a sum or a digest.
import hashlib
import json
import queue
import threading


def word(n):
    letters = "abcdefghijklmnopqrstuvwxyz"
    out = []
    n += 1
    while n:
        n, r = divmod(n, 26)
        out.append(letters[r])
    return "".join(reversed(out))


def build_index(count):
    index = {}
    for i in range(count):
        key = word(i * 7919 % 100003)
        entry = index.setdefault(key[:2], {})
        entry[key] = {"id": i, "tags": [word(i % 97), word(i % 13)], "weight": i % 101 / 7}
    return index


def digest(text):
    return hashlib.sha256(text.encode()).hexdigest()[:16]


def strings(count):
    parts = []
    for i in range(count):
        s = "%s-%d-%s" % (word(i), i * i, word(i // 3).upper())
        parts.append(s.replace("a", "@").center(24, ".")[::-1])
    joined = "|".join(parts)
    split = joined.split("|")
    return len(joined), len(split), digest(joined)


def json_round_trips(index):
    text = json.dumps(index, sort_keys=True)
    back = json.loads(text)
    again = json.dumps(back, sort_keys=True, indent=1)
    return len(text), len(again), back == index, digest(text)


def worker(number, tasks, results):
    while True:
        task = tasks.get()
        if task is None:
            return
        words = {}
        for i in range(task * 500, task * 500 + 500):
            w = word(i * number % 7877)
            words[w] = words.get(w, 0) + len(w)
        blob = json.dumps(sorted(words.items()))
        results.put((task, len(words), sum(words.values()), digest(blob)))


def threaded(threads, task_count):
    tasks = queue.Queue()
    results = queue.Queue()
    for t in range(task_count):
        tasks.put(t)
    for _ in range(threads):
        tasks.put(None)
    # Every thread uses the same multiplier, so a task's result does not
    # depend on the thread that ran it.
    pool = [threading.Thread(target=worker, args=(31, tasks, results)) for _ in range(threads)]
    for thread in pool:
        thread.start()
    for thread in pool:
        thread.join()
    collected = sorted(results.get() for _ in range(task_count))
    return collected


index = build_index(20000)
print("index groups", len(index), "entries", sum(len(v) for v in index.values()))
print("first groups", sorted(index)[:5])
print("strings", *strings(40000))
print("json", *json_round_trips(index))
results = threaded(4, 64)
print("threads tasks", len(results), "words", sum(r[1] for r in results))
for task, count, total, dig in results[:4] + results[-4:]:
    print("task", task, count, total, dig)
print("all tasks", digest(repr(results)))
