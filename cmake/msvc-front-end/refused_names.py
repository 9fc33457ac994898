#!/usr/bin/env python3
"""Refuses by name what clang reads as Microsoft's compiler would, and Microsoft's does not.

    refused_names.py FILE...

Prints each finding as FILE:LINE: what, and exits with 1 if there is one. Comments, texts and what
stands between "#ifndef _WIN32" (or the #else of its opposite) and its end are passed over."""

import re
import sys

# Allowed on purpose: the differences between compilers, and the guard for GCC only.
MEANT = ("src/shared/c_runtime.h", "src/shared/stack_guard.cpp")

# Words of the GNU dialect that are not standard.
GNU_WORDS = re.compile(
    r"""__attribute(__)? | (__)?asm(__)? | __(builtin|atomic|sync|c11)_\w+ | (__)?typeof(__)?
    | __(alignof|const|extension|imag|inline|label|real|restrict|signed|thread|volatile)__
    | __auto_type | __float128 | __thread | __u?int128(_t)? | __null
    | __PRETTY_FUNCTION__ | __(INCLUDE_LEVEL|BASE_FILE|CHAR_BIT|BYTE_ORDER)__
    | __has_(attribute|builtin|extension|feature|warning) | __VA_OPT__""",
    re.VERBOSE,
)

# Declared only in other systems' headers, or under another name in this one's C runtime.
POSIX_WORDS = set(
    """ftime gettimeofday mode_t off64_t pclose pid_t popen ssize_t strcasecmp strncasecmp strcmpi
    wcscasecmp""".split()
)

# Names that the C runtime has with a leading underscore. Plain ones are words like any other: only a
# qualified call means the platform's.
UNDERSCORED = set(
    """access chdir chmod chsize close creat cwait dup dup2 ecvt environ eof execl execle execlp
    execlpe execv execve execvp execvpe fcvt fdopen filelength fileno gcvt getch getche getcwd getpid
    getw isascii isatty itoa kbhit lfind locking lsearch lseek ltoa memccpy memicmp mkdir mktemp
    onexit open putch putenv putw read rmdir setmode sopen spawnl spawnv stricmp strdup stricoll
    strlwr strnicmp strnset strrev strset strupr swab tell tempnam toascii tzset ultoa umask ungetch
    unlink utime wcsdup wcsicmp wcsicoll wcslwr wcsnicmp wcsnset wcsrev wcsset wcsupr write""".split()
)

# Microsoft's has four of those in sys.
HEADERS = re.compile(
    r"""(?!sys/(locking|stat|timeb|types|utime)\.h)
    ( (arpa|bits|experimental|ext|linux|net|netinet|sys|wine)/.*
    | (alloca|byteswap|cpuid|cxxabi|dirent|dlfcn|endian|execinfo|features|fnmatch|getopt|glob|grp
       |langinfo|libgen|mm_malloc|poll|pthread|pwd|sched|semaphore|spawn|strings|syslog|termios
       |unistd|unwind|x86intrin)\.h )""",
    re.VERBOSE,
)

TOKEN = re.compile(
    r"""(?P<comment>//[^\n]*|/\*.*?\*/)
    | (?P<raw>\w*R"(?P<mark>[^(]*)\(.*?\)(?P=mark)")
    | (?P<number>\.?\d(?:[eEpP][+-]|[\w.]|'\w)*)
    | (?P<text>"(?:\\.|[^"\\\n])*"|'(?:\\.|[^'\\\n])*')
    | (?P<directive>^[ \t]*\#[ \t]*(?P<verb>\w+)(?P<rest>(?:\\\n|[^\n])*))
    | (?P<word>(?P<platform>(?<![\w>])::)?(?P<name>[A-Za-z_]\w*)(?P<scope>::)?)""",
    re.VERBOSE | re.DOTALL | re.MULTILINE,
)


def refused_word(match):
    """What is wrong with a word, or None."""
    name = match["name"]
    if GNU_WORDS.fullmatch(name):
        return f"{name} is GNU's"
    if name in ("gnu", "clang") and match["scope"]:
        return f"an attribute of {name}'s"
    if name in POSIX_WORDS or (name in UNDERSCORED and match["platform"]):
        return f"{name} is not the C runtime's name"
    return None


def refused_directive(verb, rest):
    """What is wrong with a directive itself, or None."""
    words = rest.split()
    if verb in ("include_next", "ident", "warning"):
        return f"#{verb} is GNU's"
    if verb == "pragma" and words and words[0] in ("GCC", "clang", "weak", "redefine_extname"):
        return f"#pragma {words[0]}"
    if verb == "include" and HEADERS.fullmatch(rest.strip().strip('<>"')):
        return f"{rest.strip()} is not Microsoft's"
    return None


def findings(text):
    """The line and the fault of each finding in a source."""
    branches = []  # of each open #if: whether Windows reads it; None if unknown
    for match in TOKEN.finditer(text):
        line = text.count("\n", 0, match.start()) + 1
        verb = match["verb"]
        if verb in ("ifdef", "ifndef", "if"):
            of_windows = match["rest"].split() == ["_WIN32"]
            branches.append((verb == "ifdef") if of_windows and verb != "if" else None)
        elif verb == "else" and branches and branches[-1] is not None:
            branches[-1] = not branches[-1]
        elif verb == "endif" and branches:
            branches.pop()
        if False in branches:
            continue
        if match["directive"]:
            fault = refused_directive(verb, match["rest"])
            if fault:
                yield line, fault
            if verb in ("define", "if", "elif"):
                yield from ((line, fault) for _, fault in findings(" " + match["rest"]))
        elif match["word"]:
            fault = refused_word(match)
            if fault:
                yield line, fault


def main(paths):
    count = 0
    for path in paths:
        if path.endswith(MEANT):
            continue
        with open(path, encoding="utf-8") as file:
            for line, fault in findings(file.read()):
                print(f"{path}:{line}: {fault}")
                count += 1
    return 1 if count else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
