#!/usr/bin/env python3
"""Plants faults in src/ and client/, one at a time, and tells which of them the unit tests find.

    tools/mutate.py --work DIR [--count N] [--seed N] [--tests DIR] [--jobs N] [FILE...]

All faults are compiled into one test program, and an environment variable chooses the one that is
in force: that takes one build, however many faults there are. Every test then runs once without a
fault to tell which faults it reaches, and each fault runs against the tests that reach it. A fault
is "caught" when a test fails, crashes or hangs, "missed" when all of them pass, and "unreached" when
no unit test comes by (system tests are not run). The report DIR/report.txt has a line for each.

The same sources, seed and count give the same faults. So --tests, another checkout's tests/, compares
two states of the tests over the same faults. A fault that changes nothing that can be observed
counts as missed: no figure here is meant to be 100 %.

Needs python3-clang, cmake, ninja and GoogleTest.
"""
import argparse
import collections
import concurrent.futures
import json
import os
import pathlib
import random
import re
import shlex
import shutil
import subprocess
import sys
import time

import clang.cindex as cindex
from clang.cindex import CursorKind as Kind, TypeKind

ROOT = pathlib.Path(__file__).resolve().parent.parent
SWAPPED = {'<': '<=', '<=': '<', '>': '>=', '>=': '>', '==': '!=', '!=': '==',
           '&&': '||', '||': '&&', '+': '-', '-': '+', '*': '/', '&': '|', '|': '&'}
SLOW = 0.5  # seconds
ORDERING = {'<', '<=', '>', '>=', '+', '-', '*', '&', '|'}
FUNCTIONS = {Kind.FUNCTION_DECL, Kind.CXX_METHOD, Kind.CONSTRUCTOR, Kind.DESTRUCTOR,
             Kind.FUNCTION_TEMPLATE, Kind.LAMBDA_EXPR}

# Forced into every source. During constant evaluation no fault is in force, so that the sources
# still compile.
HEADER = r'''
#pragma once
#include <fcntl.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>
namespace zot_mutation {
inline int active = -1;
inline unsigned char* reached = nullptr;
__attribute__((constructor)) inline void Start() {
    if (const char* number = getenv("ZOT_MUTANT")) active = atoi(number);
    const char* path = getenv("ZOT_MUTANTS_REACHED");
    int file = path != nullptr ? open(path, O_RDWR | O_CLOEXEC) : -1;
    if (file < 0) return;
    void* map = mmap(nullptr, 65536, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
    close(file);
    if (map != MAP_FAILED) reached = static_cast<unsigned char*>(map);
}
inline bool Active(int number) {
    if (reached != nullptr) reached[number] = 1;
    return number == active;
}
constexpr bool On(int number) { return !__builtin_is_constant_evaluated() && Active(number); }
}
#define ZOT_ON(number) (::zot_mutation::On(number))
'''
# Compiled once and for all: most of the time to compile a test goes into these.
COMMON = ('algorithm', 'array', 'atomic', 'chrono', 'cstdint', 'cstdio', 'cstdlib', 'cstring', 'filesystem',
          'fstream', 'functional', 'map', 'memory', 'mutex', 'optional', 'random', 'set', 'span', 'sstream',
          'string', 'string_view', 'thread', 'utility', 'vector')


class Fault(collections.namedtuple('Fault', 'file begin end line what text')):
    """`text` replaces the bytes from begin to end; %d in it takes the fault's number."""


def arithmetic(node):
    kind = node.type.get_canonical().kind
    return kind == TypeKind.BOOL or TypeKind.CHAR_U.value <= kind.value <= TypeKind.LONGDOUBLE.value


class Finder:
    """Collects the faults of one file; its visit() walks the syntax tree of a source that has it."""

    def __init__(self, file):
        self.file, self.source, self.faults = file, file.read_bytes(), []

    def text(self, node):
        return self.source[node.extent.start.offset:node.extent.end.offset].decode()

    def add(self, node, what, text, begin=None, end=None):
        begin = node.extent.start.offset if begin is None else begin
        end = node.extent.end.offset if end is None else end
        self.faults.append(Fault(self.file, begin, end, node.extent.start.line, what, text))

    def binary(self, node):
        left, right = node.get_children()
        gap = self.source[left.extent.end.offset:right.extent.start.offset].decode()
        sign = re.sub(r'//.*', '', gap).strip()
        if sign not in SWAPPED:
            return
        if sign in ORDERING and not (arithmetic(left) and arithmetic(right)):
            return
        a, b, other = self.text(left), self.text(right), SWAPPED[sign]
        self.add(node, f'{sign} becomes {other}',
                 f'(ZOT_ON(%d) ? ({a}) {other} ({b}) : ({a}) {sign} ({b}))')

    def condition(self, node):
        children = list(node.get_children())
        index = {Kind.IF_STMT: 0, Kind.WHILE_STMT: 0, Kind.DO_STMT: 1}[node.kind]
        at = children[index]
        if node.kind == Kind.IF_STMT and at.kind == Kind.DECL_STMT:
            at = children[1] if len(children) > 2 and children[1].kind.is_expression() else None
        if at is not None and at.kind.is_expression():
            self.add(at, 'condition negated', f'(ZOT_ON(%d) != static_cast<bool>({self.text(at)}))')

    def returned(self, node):
        values = list(node.get_children())
        if not values:
            return
        kind, text = values[0].type.get_canonical().kind, self.text(values[0])
        if kind == TypeKind.BOOL:
            changed, what = f'(ZOT_ON(%d) != ({text}))', 'result negated'
        elif arithmetic(values[0]):
            changed, what = f'(({text}) + (ZOT_ON(%d) ? 1 : 0))', 'result one too large'
        else:
            return
        self.add(values[0], what, changed)

    def statement(self, node):
        """A statement of a block that is a whole expression: dropped."""
        end = self.source.find(b';', node.extent.end.offset)
        if self.source[node.extent.end.offset:end].strip() == b'':
            self.add(node, 'statement dropped', f'if (!ZOT_ON(%d)) {{ {self.text(node)}; }}', end=end + 1)

    def body(self, function):
        block = [c for c in function.get_children() if c.kind == Kind.COMPOUND_STMT]
        if block and function.result_type.kind == TypeKind.VOID:
            begin = block[0].extent.start.offset + 1
            self.add(block[0], 'returns at once', ' if (ZOT_ON(%d)) return;', begin, begin)

    def visit(self, node, inside=False):
        mine = node.location.file is not None and node.location.file.name == str(self.file)
        # What a macro wrote has no text of its own here.
        if mine and inside and self.text(node)[:1] != '':
            if node.kind == Kind.BINARY_OPERATOR and len(list(node.get_children())) == 2:
                self.binary(node)
            elif node.kind in (Kind.IF_STMT, Kind.WHILE_STMT, Kind.DO_STMT):
                self.condition(node)
            elif node.kind == Kind.RETURN_STMT:
                self.returned(node)
            elif node.kind == Kind.INTEGER_LITERAL:
                self.add(node, 'constant one too large', f'({self.text(node)} + ZOT_ON(%d))')
            elif node.kind == Kind.COMPOUND_STMT:
                for child in node.get_children():
                    if child.kind.is_expression():
                        self.statement(child)
        if mine and node.kind in FUNCTIONS:
            inside = True
            if node.kind in (Kind.FUNCTION_DECL, Kind.CXX_METHOD):
                self.body(node)
        # A case must stay a constant that is known, an array a size.
        for child in node.get_children():
            if node.kind == Kind.CASE_STMT and child.kind.is_expression():
                continue
            self.visit(child, inside)


def find_faults(files):
    """Every fault that can be planted. A header is looked at in the first source that includes it."""
    faults, waiting = [], set(files)
    for file in sorted(files, key=lambda f: f.suffix != '.cpp'):
        if file not in waiting:
            continue
        language = ['-x', 'c++-header'] if file.suffix == '.h' else []
        flags = ['-std=gnu++20', f'-I{ROOT}/src', f'-I{ROOT}', *language]
        unit = cindex.Index.create().parse(str(file), flags)
        errors = [d.spelling for d in unit.diagnostics if d.severity >= cindex.Diagnostic.Error]
        if errors:
            sys.exit(f'{file}: {errors[0]}')
        finders = {}
        for node in unit.cursor.get_children():
            name = node.location.file and node.location.file.name
            path = name and pathlib.Path(name)
            if path in waiting:
                finders.setdefault(path, Finder(path)).visit(node)
        waiting -= {file, *finders}
        for finder in finders.values():
            faults += finder.faults
    return sorted(set(faults))


def choose(faults, count, seed):
    """So many faults that do not overlap, spread over the files by their number of faults."""
    chosen, taken = [], collections.defaultdict(list)
    random.Random(seed).shuffle(faults)
    for fault in faults:
        if len(chosen) == count:
            break
        if all(fault.end <= begin or end <= fault.begin for begin, end in taken[fault.file]):
            taken[fault.file].append((fault.begin, fault.end))
            chosen.append(fault)
    return sorted(chosen)


def write_tree(tree, faults, left_out, tests):
    """The sources with all faults in them; only what changed is written, so that little is rebuilt."""
    shutil.copytree(ROOT, tree, dirs_exist_ok=True, copy_function=copy_changed, symlinks=True,
                    ignore=lambda folder, names: [
                        n for n in names if n.startswith(('.git', 'build')) or
                        pathlib.Path(folder) == ROOT and n in ('src', 'client', 'tests')])
    for name, origin in (('src', ROOT / 'src'), ('client', ROOT / 'client'), ('tests', tests)):
        wanted = {path.relative_to(origin) for path in origin.rglob('*') if path.is_file()}
        for old in [path for path in (tree / name).rglob('*') if path.is_file()]:
            if old.relative_to(tree / name) not in wanted:
                old.unlink()
        for path in wanted:
            mine = [(i, f) for i, f in enumerate(faults) if f.file == origin / path and i not in left_out]
            content = (origin / path).read_bytes()
            for i, fault in sorted(mine, key=lambda pair: -pair[1].begin):
                new = fault.text.replace('%d', str(i)).encode()
                content = content[:fault.begin] + new + content[fault.end:]
            target = tree / name / path
            target.parent.mkdir(parents=True, exist_ok=True)
            if not target.exists() or target.read_bytes() != content:
                target.write_bytes(content)
                shutil.copymode(origin / path, target)


def copy_changed(source, target):
    if not os.path.exists(target) or pathlib.Path(source).read_bytes() != pathlib.Path(target).read_bytes():
        shutil.copy2(source, target)


def precompile(work, out, like, more):
    """Compiles the forced header with the flags of the first source below the folder."""
    entries = json.loads((out / 'compile_commands.json').read_text())
    entry = next(e for e in entries if f'/tree/{like}/' in e['file'])
    words, flags = iter(shlex.split(entry['command'])), []
    for word in words:
        if word in ('-o', '-c', '-include'):
            next(words)
        else:
            flags.append(word)
    full = work / f'mutation-{like}.h'
    full.write_text(HEADER + ''.join(f'#include <{name}>\n' for name in COMMON + more))
    made = work / 'mutation.h.gch' / like
    made.parent.mkdir(exist_ok=True)
    subprocess.run([*flags, '-x', 'c++-header', full, '-o', made], cwd=entry['directory'], check=True)


def build(work, faults, tests, jobs):
    """Builds the tests; a fault that does not compile is left out. Returns those that were."""
    tree, out, left_out = work / 'tree', work / 'build', set()
    (work / 'mutation.h').write_text(HEADER)
    while True:
        write_tree(tree, faults, left_out, tests)
        subprocess.run(['cmake', '-S', tree, '-B', out, '-G', 'Ninja', '-DZOT_TESTS=ON',
                        '-DCMAKE_BUILD_TYPE=None',
                        f'-DCMAKE_CXX_FLAGS=-O0 -w -Wno-error -Wno-narrowing -include {work}/mutation.h'],
                       check=True, stdout=subprocess.DEVNULL)
        if not (work / 'mutation.h.gch').exists():
            precompile(work, out, 'src', ())
            precompile(work, out, 'tests', ('gtest/gtest.h',))
        made = subprocess.run(['cmake', '--build', out, '-j', str(jobs), '--target', 'zot_tests',
                               '--', '-k', '0'], capture_output=True, text=True)
        if made.returncode == 0:
            return left_out
        # The compiler quotes the lines that it complains about, and the faults' numbers stand in them.
        broken = {int(number) for number in re.findall(r'ZOT_ON\((\d+)\)', made.stdout)}
        if broken <= left_out:
            sys.exit(made.stdout[-4000:])
        left_out |= broken


def run(program, tests, limit, **environment):
    """0 when the tests pass; anything else when they fail or take too long."""
    child = subprocess.Popen([program, '--gtest_fail_fast', '--gtest_brief=1',
                              f'--gtest_filter={":".join(tests)}'],
                             stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
                             env={**os.environ, **environment}, start_new_session=True)
    try:
        return child.wait(limit)
    except subprocess.TimeoutExpired:
        return -1
    finally:
        try:
            os.killpg(child.pid, 9)  # what a faulty test left running
        except ProcessLookupError:
            pass
        child.wait()


def test_names(program):
    suite, names = '', []
    listed = subprocess.run([program, '--gtest_list_tests'], capture_output=True, text=True, check=True)
    for line in listed.stdout.splitlines():
        name = line.split('#')[0].rstrip()
        if line.startswith('  '):
            names.append(suite + name.strip())
        elif name.endswith('.'):
            suite = name
    # These read the sources, which look different here.
    return [n for n in names if not re.match(r'(House|Docs|DISABLED)', n)]


def reach(program, work, count, test):
    """Which faults the test comes by, and the seconds that it takes."""
    path = work / f'reached-{re.sub("[^A-Za-z0-9]", "_", test)}'
    path.write_bytes(bytes(65536))
    start = time.monotonic()
    if run(program, [test], 300, ZOT_MUTANTS_REACHED=str(path)) != 0:
        print(f'left out, fails without a fault: {test}', flush=True)
        count = 0
    took = time.monotonic() - start
    found = {i for i in range(count) if path.read_bytes()[i]}
    path.unlink()
    return test, found, took


def main():
    arguments = argparse.ArgumentParser(description=__doc__,
                                        formatter_class=argparse.RawDescriptionHelpFormatter)
    arguments.add_argument('--work', type=pathlib.Path, required=True,
                           help='working directory, kept between runs')
    arguments.add_argument('--count', type=int, default=300)
    arguments.add_argument('--seed', type=int, default=1)
    arguments.add_argument('--tests', type=pathlib.Path, default=ROOT / 'tests')
    arguments.add_argument('--jobs', type=int, default=os.cpu_count())
    arguments.add_argument('files', nargs='*', type=pathlib.Path, help='default: all of src/ and client/')
    options = arguments.parse_args()
    work = options.work.resolve()
    work.mkdir(parents=True, exist_ok=True)

    files = [f.resolve() for f in options.files] or sorted(
        f for top in ('src', 'client') for f in (ROOT / top).rglob('*')
        if f.suffix in ('.h', '.cpp') and
        not re.search('freebsd|aarch64|arm_features|agent/main|client/zotq.cpp', str(f)))
    found = find_faults(files)
    faults = choose(found, options.count, options.seed)
    print(f'{len(faults)} of {len(found)} possible faults; building', flush=True)
    left_out = build(work, faults, options.tests.resolve(), options.jobs)
    print(f'{len(left_out)} do not compile', flush=True)

    program = work / 'build' / 'zot_tests'
    reached, seconds = collections.defaultdict(list), {}
    with concurrent.futures.ThreadPoolExecutor(options.jobs) as pool:
        for test, by, took in pool.map(lambda t: reach(program, work, len(faults), t), test_names(program)):
            seconds[test] = took
            for i in by:
                reached[i].append(test)

        def judge(i):
            if i in left_out:
                return 'uncompiled'
            if not reached[i]:
                return 'unreached'
            # Most faults fall to a quick test.
            for slow in (False, True):
                tests = [t for t in reached[i] if (seconds[t] > SLOW) == slow]
                limit = 10 + 4 * sum(seconds[t] for t in tests)
                if tests and run(program, tests, limit, ZOT_MUTANT=str(i)) != 0:
                    return 'caught'
            return 'missed'

        results = list(pool.map(judge, range(len(faults))))

    kinds = ('caught', 'missed', 'unreached')
    table = collections.defaultdict(collections.Counter)
    with open(work / 'report.txt', 'w') as report:
        for fault, result in zip(faults, results):
            file = fault.file.relative_to(ROOT)
            report.write(f'{result:10} {file}:{fault.line}:{fault.begin} {fault.what}\n')
            for row in (str(file), 'all'):
                table[row][result] += 1
    print(f'{"":44}' + ''.join(f'{kind:>10}' for kind in kinds))
    for file, row in table.items():
        print(f'{file:44}' + ''.join(f'{row[kind]:10}' for kind in kinds))


if __name__ == '__main__':
    main()
