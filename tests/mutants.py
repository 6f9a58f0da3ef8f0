#!/usr/bin/env python3
"""Puts single random faults into the agent's sources and tells which of them the tests notice:
    tests/mutants.py SEED COUNT [-j JOBS] [--files GLOB] [--quick]
Runs as root, like the tests. The tree is only read: what is faulty is compiled and linked in a
folder of its own with the other objects of build/mutants. A fault that does not compile does not
count, and a value that is not returned is none that compiles, as in the agent's own build; tests
that die or take too long have noticed it. The thousand-fold loops of the process tests come last,
for what nothing else noticed, and with --quick not at all."""
import argparse, concurrent.futures, glob, json, os, random, re, shlex, signal, subprocess, tempfile

BUILD = "build/mutants"
PROGRAMS = ("src/sbin/tav_init", "tools/tav_sim", "tests/tav_process_tests")
LOOPS = "StartStop.*:FaultLoop.*:HostFault.*"
# What may stand for what: either for the other, or each of a family for any of it.
PAIRS = "== != < <= < >= > >= > <= + - * / % / & | << >> && || += -= |= &= ++ -- true false".split()
FAMILIES = ("SIGTERM SIGHUP SIGINT SIGALRM SIGUSR1 SIGCHLD", "LOG_ERR LOG_INFO", "SIG_IGN SIG_DFL")
NO_STATEMENT = re.compile(r"(using|namespace|static_assert|constexpr|case|default|friend)\b")


# By text, all that may stand there instead.
def alternatives():
    swaps = {"!": [""]}
    for one, other in zip(PAIRS[::2], PAIRS[1::2]):
        swaps.setdefault(one, []).append(other)
        swaps.setdefault(other, []).append(one)
    families = [family.split() for family in FAMILIES]
    for path in glob.glob("src/*.h") + glob.glob("src/*.cpp"):
        for m in re.finditer(r"\benum\b[^;{]*\{(.*?)\}", blanked(open(path).read()), re.S):
            families.append(re.findall(r"(?:^|,)\s*(\w+)", m[1]))
    return swaps | {one: [other for other in family if other != one]
                    for family in families for one in family if len(family) > 1}


# The text with comments, literals and directives made unrecognisable, place by place.
def blanked(text):
    skipped = r'//[^\n]*|/\*.*?\*/|^[ \t]*#[^\n]*|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'(?!\w)'
    return re.sub(skipped, lambda m: re.sub(r"[^\n]", "@" if m[0][0] in "\"'" else " ", m[0]),
                  text, flags=re.M | re.S)


# The places of the bracket at `start`, of the commas directly in it, and of the one that closes it.
def bracket(code, start):
    depth, places = 0, [start]
    for place in range(start, len(code)):
        depth += (code[place] in "([{") - (code[place] in ")]}")
        if depth == 0 or depth == 1 and code[place] == ",":
            places.append(place)
        if depth == 0:
            return places


# Every place (start, end) with the texts that may stand there instead.
def faults(text, swaps):
    code = blanked(text)
    for m in re.finditer(r"(?<= )[-+*/%&|<>=!]+(?= )|\+\+|--|!(?=[\w(:*])|\b[A-Za-z]\w+\b", code):
        if m[0] in swaps:
            yield *m.span(), swaps[m[0]]
    for m in re.finditer(r"(?<![\w.'])(0x[\dA-Fa-f]+|[1-9][\d']*|0)(?=[uUlL]*\b)", code):
        number = int(m[0].replace("'", ""), 0)
        yield *m.span(), [str(number + 1), str(number - 1)] if number else ["1"]
    for m in re.finditer(r"\b(?:if|while) (\()", code):
        end = bracket(code, m.start(1))[-1] + 1
        yield m.start(1), end, [f"(!{text[m.start(1):end]})"]
    for m in re.finditer(r"[;{}:](?=\s*\n\s*([^\s{}][^;{}]*;))", code):
        if not NO_STATEMENT.match(m[1]):
            yield *m.span(1), [";"]
    for m in re.finditer(r"\b(?!(?:strcmp|memcmp|min|max)\b)\w+(?:<[^<>]*>)?(\()", code):
        places = bracket(code, m.start(1))
        for first, middle, last in zip(places, places[1:], places[2:]):
            one, other = text[first + 1:middle].strip(), text[middle + 1:last].strip()
            if one != other:
                yield first + 1, last, [f"{other}, {one}"]


# The command's output and exit status; a status of None when it took too long.
def run(command, seconds, folder=None):
    process = subprocess.Popen(command, cwd=folder, stdout=subprocess.PIPE, text=True,
                               stderr=subprocess.STDOUT, errors="replace", start_new_session=True)
    try:
        return process.communicate(timeout=seconds)[0], process.returncode
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        return process.communicate()[0], None


# Builds everything as it is; gives the commands that compile and link.
def prepared():
    subprocess.run(["cmake", "-GNinja", "-B", BUILD, "-DCMAKE_BUILD_TYPE=Debug", "-DTAV_TESTS=ON",
                    "--log-level=ERROR",
                    "-DCMAKE_CXX_FLAGS_DEBUG=-O0 -Werror=return-type",
                    "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON"],
                   stdout=subprocess.DEVNULL, check=True)
    ninja = ["ninja", "-C", BUILD, "--quiet"]
    subprocess.run([*ninja, "tav_unit_tests", "tav_process_tests"], check=True)
    compiles = {one["file"]: shlex.split(one["command"])
                for one in json.load(open(f"{BUILD}/compile_commands.json"))}
    return compiles, {target: subprocess.check_output([*ninja, "-t", "commands", target],
                                                      text=True).splitlines()[-1]
                      for target in ("tests/tav_unit_tests", *PROGRAMS)}


# Who noticed: a test, or how the tests ended; empty when nobody did.
def noticed_by(tests, seconds, preparation=""):
    output, status = run(["unshare", "--mount", "--pid", "--fork", "--kill-child", "--mount-proc",
                          "sh", "-c", f"ulimit -v 4000000 -f 1000000; {preparation} "
                          f"exec {tests} --gtest_fail_fast"], seconds)
    failed = re.search(r"\[  FAILED  \] ([\w.]+)", output)
    last = ["the start", *re.findall(r"\[ RUN      \] ([\w.]+)", output)][-1]
    return "" if status == 0 else failed[1] if failed else \
        f"{last}, which {'hangs' if status is None else 'dies'}"


# Compiles one fault and lets the tests look for it. Nothing when it does not compile or link,
# otherwise where it is, the line before and after, and who noticed.
def attempt(fault, compiles, links, quick):
    path, text, start, end, after = fault
    command = compiles[os.path.abspath(path)]
    original = command[-3]
    with tempfile.TemporaryDirectory(prefix="tav_mutant.") as folder:
        own, library = f"{folder}/{os.path.basename(original)}", f"{folder}/libtav.a"
        with open(f"{folder}/{os.path.basename(path)}", "w") as file:
            file.write(text[:start] + after + text[end:])
        member = "" if "tav_entry" in original else own
        compiled = shlex.join([*command[:-4], f"-ffile-prefix-map={folder}=src", "-o", own, "-c",
                               file.name])
        if run(["sh", "-c", f"{compiled} && cp src/libtav.a {library} && ar r {library} {member}"],
               120, BUILD)[1] != 0:
            return None

        def linked(target):
            result = f"{folder}/{os.path.basename(target)}"
            line = links[target].replace(f"-o {target} ", f"-o {result} ")
            line = line.replace("src/libtav.a", library).replace(original, own)
            return result if run(["sh", "-c", line], 120, BUILD)[1] == 0 else None

        unit_tests = linked("tests/tav_unit_tests")
        if unit_tests is None:
            return None
        who = noticed_by(unit_tests, 60)
        if not who:
            bind = "".join(f"mount --bind {linked(one)} {BUILD}/{one} && " for one in PROGRAMS)
            tests = f"{BUILD}/tests/tav_process_tests --gtest_filter="
            who = noticed_by(f"{tests}-{LOOPS}", 150, bind) or (
                not quick and noticed_by(tests + LOOPS, 900, bind))
    first, last = text.rfind("\n", 0, start) + 1, text.find("\n", end)
    lines = text[first:last], text[first:start] + after + text[end:last]
    return (f"{path}:{text.count(chr(10), 0, start) + 1}", *(" ".join(x.split()) for x in lines), who)


def main():
    parser = argparse.ArgumentParser(usage=__doc__)
    parser.add_argument("seed", type=int)
    parser.add_argument("count", type=int)
    parser.add_argument("-j", type=int, default=os.cpu_count())
    parser.add_argument("--files", default="src/*.cpp")
    parser.add_argument("--quick", action="store_true")
    options = parser.parse_args()
    os.chdir(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
    swaps, rng, every = alternatives(), random.Random(options.seed), []
    for path in sorted(glob.glob(options.files)):
        text = open(path).read()
        every += [(path, text, *place[:2], rng.choice(place[2])) for place in faults(text, swaps)]
    rng.shuffle(every)
    compiles, links = prepared()
    total = missed = 0
    with concurrent.futures.ThreadPoolExecutor(options.j) as pool:
        for outcome in pool.map(lambda one: attempt(one, compiles, links, options.quick), every):
            if outcome is not None:
                total, missed = total + 1, missed + (not outcome[3])
                print("{:4} {}\n     - {}\n     + {}\n     {}".format(
                    total, *outcome[:3], outcome[3] and f"noticed by {outcome[3]}" or "NOT NOTICED"),
                    flush=True)
            if total == options.count:
                pool.shutdown(wait=False, cancel_futures=True)
                break
    print(f"{total - missed} of {total} noticed (seed {options.seed}, {len(every)} places)")


if __name__ == "__main__":
    main()
