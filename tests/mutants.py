#!/usr/bin/env python3
"""Puts single random faults into the agent's sources and tells which of them the tests notice.

    tests/mutants.py SEED COUNT [-j JOBS] [--files GLOB] [--filter PROCESS-TESTS]

Runs as root, like the tests. The tree is only read: what is faulty is compiled and linked beside
build/mutants, whose other objects are used again. A fault that does not compile does not count;
tests that take too long or die have noticed it.
"""
import argparse, bisect, concurrent.futures, glob, json, os, random, re, shlex, signal, subprocess
import sys, tempfile

BUILD = "build/mutants"
TESTS = ("tav_unit_tests", "tav_process_tests")
PROGRAMS = ("src/sbin/tav_init", "sim/tav_sim")
SWAPS = {"==": ["!="], "!=": ["=="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="],
         ">=": [">", "<"], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["/"], "&": ["|"],
         "|": ["&"], "<<": [">>"], ">>": ["<<"], "&&": ["||"], "||": ["&&"], "+=": ["-="],
         "-=": ["+="], "|=": ["&="], "&=": ["|="], "++": ["--"], "--": ["++"], "true": ["false"],
         "false": ["true"], "!": [""]}
FAMILIES = [["SIGTERM", "SIGHUP", "SIGINT", "SIGALRM", "SIGUSR1", "SIGCHLD"],
            ["LOG_ERR", "LOG_INFO"], ["SIG_IGN", "SIG_DFL"], ["SIG_BLOCK", "SIG_SETMASK"]]
NO_STATEMENT = re.compile(r"(using|namespace|static_assert|constexpr|case|default|friend)\b")


def blanked(text):
    """The text with comments, literals and directives made unrecognisable, place by place."""
    skipped = r'//[^\n]*|/\*.*?\*/|^[ \t]*#[^\n]*|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'(?!\w)'
    return re.sub(skipped, lambda m: re.sub(r"[^\n]", "@" if m[0][0] in "\"'" else " ", m[0]),
                  text, flags=re.M | re.S)


def closing(code, start):
    """The place of the bracket that closes the one at `start`, and those of the commas between."""
    depth, commas = 0, []
    for place in range(start, len(code)):
        depth += (code[place] in "([{") - (code[place] in ")]}")
        if depth == 0:
            return place, commas
        if depth == 1 and code[place] == ",":
            commas.append(place)
    return start, []


def faults(text, families):
    """Every place (start, end) with the texts that may stand there instead."""
    code = blanked(text)
    for m in re.finditer(r" (==|!=|[<>]=?|[-+|&]=?|\*|/|%|<<|>>|&&|\|\|) |(\+\+|--)|"
                         r"\b(true|false)\b|(!)(?=[\w(:*])", code):
        yield *m.span(m.lastindex), SWAPS[m[m.lastindex]]
    for m in re.finditer(r"(?<![\w.'])(0x[\dA-Fa-f]+|[1-9][\d']*|0)(?=[uUlL]*\b)", code):
        number = int(m[0].replace("'", ""), 0)
        yield *m.span(), [str(number + 1), str(number - 1)] if number else ["1"]
    for m in re.finditer(r"\b(?:if|while) (\()", code):
        end, _ = closing(code, m.start(1))
        yield m.start(1), end + 1, [f"(!{text[m.start(1):end + 1]})"]
    for m in re.finditer(r"[;{}:](?=\s*\n\s*(\S[^;{}]*;))", code):
        if not NO_STATEMENT.match(m[1]):
            yield *m.span(1), [";"]
    for m in re.finditer(r"\w(\()", code):
        end, commas = closing(code, m.start(1))
        places = [m.start(1), *commas, end]
        for first, middle, last in zip(places, places[1:], places[2:]):
            one, other = text[first + 1:middle], text[middle + 1:last]
            yield first + 1, last, [f"{other.strip()}, {one.strip()}"]
    for m in re.finditer(r"\b[A-Za-z]\w+\b", code):
        if others := [name for name in families.get(m[0], []) if name != m[0]]:
            yield *m.span(), others


def enumerators():
    """Each enumerator's family, by name."""
    families = list(FAMILIES)
    for path in glob.glob("src/*.h") + glob.glob("src/*.cpp"):
        for m in re.finditer(r"\benum\b[^;{]*\{(.*?)\}", blanked(open(path).read()), re.S):
            families.append(re.findall(r"(?:^|,)\s*(\w+)", m[1]))
    return {name: family for family in families for name in family}


def run(command, seconds, folder=None):
    """The command's output and exit status; a status of None when it took too long."""
    process = subprocess.Popen(command, cwd=folder, stdout=subprocess.PIPE, text=True,
                               stderr=subprocess.STDOUT, errors="replace", start_new_session=True)
    try:
        return process.communicate(timeout=seconds)[0], process.returncode
    except subprocess.TimeoutExpired:
        os.killpg(process.pid, signal.SIGKILL)
        return process.communicate()[0], None


def prepared():
    """Builds everything as it is; gives the commands that compile and link."""
    subprocess.run(["cmake", "-GNinja", "-B", BUILD, "-DCMAKE_BUILD_TYPE=Debug", "--log-level=ERROR",
                    "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON"],
                   stdout=subprocess.DEVNULL, check=True)
    subprocess.run(["ninja", "-C", BUILD, "--quiet", *TESTS], check=True)
    compiles = {one["file"]: one for one in json.load(open(f"{BUILD}/compile_commands.json"))}
    links = {}
    for target in ("tests/tav_unit_tests", *PROGRAMS):
        output = subprocess.check_output(["ninja", "-C", BUILD, "-t", "commands", target], text=True)
        links[target] = output.splitlines()[-1]
    return compiles, links


class Mutant:
    """One fault in a folder of its own."""

    def __init__(self, path, text, folder, compiles, links):
        self.folder, self.links = folder, links
        entry = compiles[os.path.abspath(path)]
        self.object = shlex.split(entry["command"])[-3]
        os.makedirs(f"{folder}/src")
        self.own = f"{folder}/{os.path.basename(self.object)}"
        with open(f"{folder}/{path}", "w") as file:
            file.write(text)
        command = shlex.split(entry["command"])[:-4]
        command += [f"-ffile-prefix-map={folder}/=", "-o", self.own, "-c", f"{folder}/{path}"]
        self.compiles = run(command, 120, BUILD)[1] == 0

    def link(self, target):
        result = f"{self.folder}/{os.path.basename(target)}"
        library = f"{self.folder}/libtav.a"
        prepare = f"cp src/libtav.a {library} && ar r {library} {self.own}"
        if "tav_entry" in self.object:
            prepare = f"cp src/libtav.a {library}"
        command = self.links[target].replace(f"-o {target} ", f"-o {result} ")
        command = command.replace("src/libtav.a", library).replace(self.object, self.own)
        output, status = run(["sh", "-c", f"{prepare} && {command}"], 120, BUILD)
        if status != 0:
            raise RuntimeError(output)
        return result

    def noticed(self, process_filter):
        """Who noticed: a test, or how the tests ended; empty when nobody did."""
        unit = self.link("tests/tav_unit_tests")
        return self.test("", unit, 60) or self.test(
            "".join(f"mount --bind {self.link(one)} {BUILD}/{one} && " for one in PROGRAMS),
            f"{BUILD}/tests/tav_process_tests --gtest_filter='{process_filter}'", 150)

    @staticmethod
    def test(preparation, tests, seconds):
        output, status = run(["unshare", "--mount", "--pid", "--fork", "--kill-child",
                              "--mount-proc", "sh", "-c", f"ulimit -v 4000000 -f 1000000; "
                              f"{preparation} exec {tests} --gtest_fail_fast"], seconds)
        failed = re.search(r"\[  FAILED  \] ([\w.]+)", output)
        started = re.findall(r"\[ RUN      \] ([\w.]+)", output)
        last = started[-1] if started else "the start"
        return "" if status == 0 else failed[1] if failed else \
            f"{last}, which {'hangs' if status is None else 'dies'}"


def attempt(fault, compiles, links, process_filter):
    """One line on the fault and who noticed it; nothing when it does not compile."""
    path, text, start, end, after = fault
    with tempfile.TemporaryDirectory(prefix="tav_mutant.") as folder:
        mutant = Mutant(path, text[:start] + after + text[end:], folder, compiles, links)
        if not mutant.compiles:
            return None
        first = text.rfind("\n", 0, start) + 1
        last = text.find("\n", end)
        place = f"{path}:{text.count(chr(10), 0, start) + 1}"
        before, now = (" ".join(one.split()) for one in
                       (text[first:last], text[first:start] + after + text[end:last]))
        return place, before, now, mutant.noticed(process_filter)


def main():
    parser = argparse.ArgumentParser()
    parser.add_argument("seed", type=int)
    parser.add_argument("count", type=int)
    parser.add_argument("-j", type=int, default=os.cpu_count())
    parser.add_argument("--files", default="src/*.cpp")
    parser.add_argument("--filter", default="-StartStop.*:FaultLoop.*")
    options = parser.parse_args()
    os.chdir(os.path.join(os.path.dirname(os.path.abspath(__file__)), ".."))
    families = enumerators()
    rng = random.Random(options.seed)
    every = []
    for path in sorted(glob.glob(options.files)):
        text = open(path).read()
        every += [(path, text, *place[:2], rng.choice(place[2])) for place in faults(text, families)]
    rng.shuffle(every)
    compiles, links = prepared()
    total = missed = 0
    with concurrent.futures.ThreadPoolExecutor(options.j) as pool:
        for outcome in pool.map(lambda one: attempt(one, compiles, links, options.filter), every):
            if outcome is None:
                continue
            place, before, now, who = outcome
            total += 1
            missed += not who
            print(f"{total:4} {place}\n     - {before}\n     + {now}\n"
                  f"     {'noticed by ' + who if who else 'NOT NOTICED'}", flush=True)
            if total == options.count:
                pool.shutdown(wait=True, cancel_futures=True)
                break
    print(f"{total - missed} of {total} noticed (seed {options.seed}, {len(every)} places)")


if __name__ == "__main__":
    main()
