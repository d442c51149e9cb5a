"""What the benchmark scripts share (bench/compare, bench/latency/run): the
peers and how to find them, the Release build of the benchmark programs,
the machine's description and the rewriting of one marked part of
docs/BENCHMARKS.md."""

import datetime
import os
import platform
import re
import subprocess
import sys

ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))
DOC = os.path.join(ROOT, "docs", "BENCHMARKS.md")

# name, Debian package, shared object inside it; None preloads nothing.
ALLOCATORS = [
    ("glibc", None, None),
    ("jemalloc", "libjemalloc2", r"libjemalloc\.so\.2$"),
    ("mimalloc", "libmimalloc2.0", r"libmimalloc\.so\.2(\.\d+)*$"),
    ("tcmalloc", "libtcmalloc-minimal4", r"libtcmalloc_minimal\.so\.4$"),
]


def log(message):
    print("== " + message, file=sys.stderr, flush=True)


def run(command, **kwargs):
    return subprocess.run(command, check=True, **kwargs)


def installed(package):
    result = subprocess.run(["dpkg-query", "-W", "-f=${Status}", package],
                            capture_output=True, text=True)
    return "install ok installed" in result.stdout


def apt_install(packages):
    missing = [package for package in packages if not installed(package)]
    if not missing:
        return True
    log("installing " + " ".join(missing))
    prefix = [] if os.geteuid() == 0 else ["sudo"]
    env = dict(os.environ, DEBIAN_FRONTEND="noninteractive")
    update = subprocess.run(prefix + ["apt-get", "update", "-qq"], env=env)
    install = subprocess.run(prefix + ["apt-get", "install", "-y", "-qq", "--no-install-recommends"] + missing, env=env)
    return update.returncode == 0 and install.returncode == 0


def package_version(package):
    result = subprocess.run(["dpkg-query", "-W", "-f=${Version}", package],
                            capture_output=True, text=True)
    return result.stdout.strip() or "?"


def shared_object(package, pattern):
    listing = subprocess.run(["dpkg", "-L", package], capture_output=True, text=True).stdout
    for path in listing.split():
        if re.search(pattern, path) and os.path.exists(path):
            return path
    return None


def build(build_dir, targets):
    if not os.path.exists(os.path.join(build_dir, "CMakeCache.txt")):
        log("configuring " + build_dir)
        run(["cmake", "-S", ROOT, "-B", build_dir, "-DCMAKE_BUILD_TYPE=Release",
             "-DQUENDAL_BUILD_BENCH=ON", "-DQUENDAL_BUILD_TESTS=OFF",
             "-DQUENDAL_BUILD_EXAMPLES=OFF"], stdout=subprocess.DEVNULL)
    log("building " + " ".join(targets))
    run(["cmake", "--build", build_dir, "-j2", "--target"] + targets,
        stdout=subprocess.DEVNULL)
    return os.path.join(build_dir, "bench")


def environment(preload):
    env = dict(os.environ)
    env.pop("LD_PRELOAD", None)
    if preload:
        env["LD_PRELOAD"] = preload
    return env


def utc_now():
    return datetime.datetime.now(datetime.timezone.utc).strftime("%Y-%m-%d %H:%M UTC")


def machine():
    """The processor, core count, system, C library and compiler, as shown
    in the reports."""
    cpu = "?"
    try:
        with open("/proc/cpuinfo") as handle:
            for line in handle:
                if line.startswith("model name"):
                    cpu = line.split(":", 1)[1].strip()
                    break
    except OSError:
        pass
    libc = subprocess.run(["ldd", "--version"], capture_output=True, text=True).stdout
    libc = libc.splitlines()[0] if libc else "?"
    compiler = subprocess.run(["c++", "--version"], capture_output=True, text=True).stdout
    compiler = compiler.splitlines()[0] if compiler else "?"
    return {"cpu": cpu, "cores": os.cpu_count() or 0,
            "system": "%s %s" % (platform.system(), platform.release()),
            "libc": libc, "compiler": compiler}


def write_section(markdown, begin, end, default_text, doc=DOC):
    """Replaces the part of doc between begin and end (appended when absent;
    default_text stands for a doc that does not exist yet)."""
    os.makedirs(os.path.dirname(doc), exist_ok=True)
    text = default_text
    if os.path.exists(doc):
        with open(doc) as handle:
            text = handle.read()
    if begin in text and end in text:
        start = text.index(begin)
        stop = text.index(end) + len(end)
        text = text[:start] + markdown + text[stop:]
    else:
        text = text.rstrip("\n") + "\n\n" + markdown + "\n"
    with open(doc, "w") as handle:
        handle.write(text)
