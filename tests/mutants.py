#!/usr/bin/env python3
"""Puts single random faults into the agent's sources and tells which of them the tests notice:
    tests/mutants.py SEED COUNT [-j JOBS] [--files GLOB] [--quick]
Runs as root, like the tests. The tree is only read: what is faulty is compiled and linked in a
folder of its own with the other objects of build/mutants. A fault that does not compile does not
count; tests that die or take too long have noticed it. The thousand-fold loops of the process tests
come last, for what nothing else noticed, and with --quick not at all."""
import argparse, concurrent.futures, glob, json, os, random, re, shlex, signal, subprocess, tempfile

BUILD = "build/mutants"
PROGRAMS = ("src/sbin/tav_init", "sim/tav_sim")
LOOPS = "StartStop.*:FaultLoop.*:HostFault.*"
SWAPS = {"==": ["!="], "<": ["<=", ">="], "<=": ["<", ">"], ">": [">=", "<="], ">=": [">", "<"],
         "!=": ["=="], "+": ["-"], "-": ["+"], "*": ["/"], "/": ["*"], "%": ["/"], "&": ["|"],
         "|": ["&"], "<<": [">>"], ">>": ["<<"], "&&": ["||"], "||": ["&&"], "+=": ["-="],
         "-=": ["+="], "|=": ["&="], "&=": ["|="], "++": ["--"], "--": ["++"], "true": ["false"],
         "false": ["true"], "!": [""]}
FAMILIES = [["SIGTERM", "SIGHUP", "SIGINT", "SIGALRM", "SIGUSR1", "SIGCHLD"],
            ["LOG_ERR", "LOG_INFO"], ["SIG_IGN", "SIG_DFL"], ["SIG_BLOCK", "SIG_SETMASK"]]
NO_STATEMENT = re.compile(r"(using|namespace|static_assert|constexpr|case|default|friend)\b")


# The text with comments, literals and directives made unrecognisable, place by place.
def blanked(text):
    skipped = r'//[^\n]*|/\*.*?\*/|^[ \t]*#[^\n]*|"(?:\\.|[^"\\\n])*"|\'(?:\\.|[^\'\\\n])+\'(?!\w)'
    return re.sub(skipped, lambda m: re.sub(r"[^\n]", "@" if m[0][0] in "\"'" else " ", m[0]),
                  text, flags=re.M | re.S)


# The place of the bracket that closes the one at `start`, and those of the commas between.
def closing(code, start):
    depth, commas = 0, []
    for place in range(start, len(code)):
        depth += (code[place] in "([{") - (code[place] in ")]}")
        if depth == 0:
            return place, commas
        if depth == 1 and code[place] == ",":
            commas.append(place)


# Every place (start, end) with the texts that may stand there instead.
def faults(text, families):
    code = blanked(text)
    for m in re.finditer(r" (==|!=|[<>]=?|[-+|&]=?|\*|/|%|<<|>>|&&|\|\|) |(\+\+|--)|"
                         r"\b(true|false)\b|(!)(?=[\w(:*])", code):
        yield *m.span(m.lastindex), SWAPS[m[m.lastindex]]
    for m in re.finditer(r"(?<![\w.'])(0x[\dA-Fa-f]+|[1-9][\d']*|0)(?=[uUlL]*\b)", code):
        number = int(m[0].replace("'", ""), 0)
        yield *m.span(), [str(number + 1), str(number - 1)] if number else ["1"]
    for m in re.finditer(r"\b(?:if|while) (\()", code):
        end = closing(code, m.start(1))[0] + 1
        yield m.start(1), end, [f"(!{text[m.start(1):end]})"]
    for m in re.finditer(r"[;{}:](?=\s*\n\s*(\S[^;{}]*;))", code):
        if not NO_STATEMENT.match(m[1]):
            yield *m.span(1), [";"]
    for m in re.finditer(r"\b(?!(?:strcmp|memcmp|min|max)\b)\w+(?:<[^<>]*>)?(\()", code):
        end, commas = closing(code, m.start(1))
        places = [m.start(1), *commas, end]
        for first, middle, last in zip(places, places[1:], places[2:]):
            one, other = text[first + 1:middle].strip(), text[middle + 1:last].strip()
            if one != other:
                yield first + 1, last, [f"{other}, {one}"]
    for m in re.finditer(r"\b[A-Za-z]\w+\b", code):
        if others := [name for name in families.get(m[0], []) if name != m[0]]:
            yield *m.span(), others


# Each enumerator's family, by name.
def enumerators():
    families = list(FAMILIES)
    for path in glob.glob("src/*.h") + glob.glob("src/*.cpp"):
        for m in re.finditer(r"\benum\b[^;{]*\{(.*?)\}", blanked(open(path).read()), re.S):
            families.append(re.findall(r"(?:^|,)\s*(\w+)", m[1]))
    return {name: family for family in families for name in family}


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
    subprocess.run(["cmake", "-GNinja", "-B", BUILD, "-DCMAKE_BUILD_TYPE=Debug", "--log-level=ERROR",
                    "-DCMAKE_CXX_FLAGS_DEBUG=-O0", "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON"],
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


# Compiles one fault and lets the tests look for it. Nothing when it does not compile, otherwise
# where it is, the line before and after, and who noticed.
def attempt(fault, compiles, links, quick):
    path, text, start, end, after = fault
    command = compiles[os.path.abspath(path)]
    original = command[-3]
    with tempfile.TemporaryDirectory(prefix="tav_mutant.") as folder:
        own, library = f"{folder}/{os.path.basename(original)}", f"{folder}/libtav.a"
        with open(f"{folder}/{os.path.basename(path)}", "w") as file:
            file.write(text[:start] + after + text[end:])
        if run([*command[:-4], f"-ffile-prefix-map={folder}=src", "-o", own, "-c", file.name], 120,
               BUILD)[1] != 0:
            return None
        member = "" if "tav_entry" in original else own
        subprocess.run(f"cp src/libtav.a {library} && ar r {library} {member} 2>&1", cwd=BUILD,
                       shell=True, check=True)

        def link(target):
            line = links[target].replace(f"-o {target} ", f"-o {folder}/{os.path.basename(target)} ")
            line = line.replace("src/libtav.a", library).replace(original, own)
            subprocess.run(line, cwd=BUILD, shell=True, check=True, stderr=subprocess.DEVNULL)
            return f"{folder}/{os.path.basename(target)}"

        try:
            who = noticed_by(link("tests/tav_unit_tests"), 60)
        except subprocess.CalledProcessError:
            return None
        if not who:
            bind = "".join(f"mount --bind {link(one)} {BUILD}/{one} && " for one in PROGRAMS)
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
    families, rng, every = enumerators(), random.Random(options.seed), []
    for path in sorted(glob.glob(options.files)):
        text = open(path).read()
        every += [(path, text, *place[:2], rng.choice(place[2])) for place in faults(text, families)]
    rng.shuffle(every)
    compiles, links = prepared()
    total = missed = 0
    with concurrent.futures.ThreadPoolExecutor(options.j) as pool:
        for outcome in pool.map(lambda one: attempt(one, compiles, links, options.quick), every):
            if outcome is None or total == options.count:
                continue
            place, before, after, who = outcome
            total += 1
            missed += not who
            print(f"{total:4} {place}\n     - {before}\n     + {after}\n"
                  f"     {'noticed by ' + who if who else 'NOT NOTICED'}", flush=True)
            if total == options.count:
                pool.shutdown(wait=False, cancel_futures=True)
                break
    print(f"{total - missed} of {total} noticed (seed {options.seed}, {len(every)} places)")


if __name__ == "__main__":
    main()
