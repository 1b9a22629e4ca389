#!/usr/bin/env python3
"""What the tutorials show is what a reader gets.

tutorial_test.py: whoever copies every block of code gets the finished program of examples/your_host. First the check itself is
tried on planted mistakes.
tutorial_test.py python|cpp STAGE HOME: besides, the program is made and run after each step, and prints what the tutorial shows.
HOME is the reader's home, where its set-up has installed everything in the folder tavo; STAGE makes the demo show.
"""

import dataclasses
import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile
import termios

PROJECT = pathlib.Path(__file__).resolve().parents[2]
FINISHED = PROJECT / 'examples' / 'your_host'
FILES = {'python': 'your_host.py', 'cpp': 'main.cpp', 'cmake': 'CMakeLists.txt'}


@dataclasses.dataclass
class Block:
    line: int
    language: str
    lines: list


class Mistake(Exception):
    pass


def read_blocks(document):
    """The blocks of code and of what is printed, in their order."""
    blocks, block = [], None
    for number, line in enumerate(document.splitlines(), 1):
        if block is None and (fence := re.fullmatch(r'```(\w+)', line)):
            block = Block(number, fence[1], [])
        elif block is not None and line == '```':
            blocks.append(block)
            block = None
        elif block is not None:
            block.lines.append(line)
    return blocks


def find_places(program, lines):
    return [place for place in range(len(program) - len(lines) + 1) if program[place:place + len(lines)] == lines]


def add_block(program, block):
    """The program with the block, of which the first lines are there already: the rest goes directly below them."""
    if not program:
        return list(block.lines)
    known = 0
    while known < len(block.lines) and find_places(program, block.lines[:known + 1]):
        known += 1
    while known > 0 and not block.lines[known - 1]:
        known -= 1
    places = find_places(program, block.lines[:known]) if known else []
    if len(places) != 1:
        raise Mistake(f'line {block.line}: the first lines of the block are in the program {len(places)} times')
    if known == len(block.lines):
        raise Mistake(f'line {block.line}: the block adds nothing')
    below = places[0] + known
    return program[:below] + block.lines[known:] + program[below:]


def assemble(document):
    """Makes the programs of a tutorial, and yields each block of what is printed with the programs as they are there."""
    programs = {}
    for block in read_blocks(document):
        if block.language in FILES:
            file = FILES[block.language]
            programs[file] = add_block(programs.get(file, []), block)
        elif block.language == 'console':
            yield block, programs
    yield None, programs


def find_problems(document, finished):
    """A sentence for each difference between what the reader has in the end and the finished program, file by file."""
    try:
        *_, (_, programs) = assemble(document)
    except Mistake as mistake:
        return [str(mistake)]
    problems = []
    for file in sorted({*programs, *finished}):
        made, kept = programs.get(file, []), finished.get(file, '').splitlines()
        for number in range(max(len(made), len(kept))):
            if made[number:number + 1] != kept[number:number + 1]:
                problems.append(f'{file}:{number + 1} is {kept[number:number + 1]}, and who follows the tutorial has '
                                f'{made[number:number + 1]}')
                break
    return problems


def read_finished(language):
    files = [FILES['python']] if language == 'python' else [FILES['cpp'], FILES['cmake']]
    return {file: (FINISHED / file).read_text('utf-8') for file in files}


def read_tutorial(language):
    return (PROJECT / 'docs' / f'tutorial-{language}.md').read_text('utf-8')


def run_in_terminal(command, folder):
    """What a command prints on a terminal, errors among it, and its exit status."""
    ours, theirs = os.openpty()
    attributes = termios.tcgetattr(theirs)
    attributes[1] &= ~termios.OPOST
    termios.tcsetattr(theirs, termios.TCSANOW, attributes)
    process = subprocess.Popen(['sh', '-c', command], cwd=folder, stdin=subprocess.DEVNULL, stdout=theirs, stderr=theirs)
    os.close(theirs)
    printed = b''
    try:
        while read := os.read(ours, 65536):
            printed += read
    except OSError:  # the end
        pass
    os.close(ours)
    return [line.rstrip() for line in printed.decode().splitlines()], process.wait()


def split_commands(block):
    """Each command with what it prints."""
    commands = []
    for line in block.lines:
        if line.startswith('$ '):
            commands.append((line[2:], []))
        elif not commands:
            raise Mistake(f'line {block.line}: the block begins without a command')
        else:
            commands[-1][1].append(line)
    return commands


def check_printed(block, folder, setup=''):
    for command, expected in split_commands(block):
        printed, status = run_in_terminal(setup + command, folder)
        # What a build prints is not shown.
        is_build = command.startswith('cmake') and not expected
        if (status != 0) if is_build else (printed != expected):
            yield f'line {block.line}: "{command}" prints\n' + '\n'.join(printed)


def run_steps(language, folder):
    """Does what the reader does, step by step."""
    document = read_tutorial(language)
    setup = ''.join(line + '\n' for block in read_blocks(document) if block.language == 'sh' for line in block.lines
                    if line.startswith('export '))
    count = 0
    for block, programs in assemble(document):
        if block is None:
            break
        for file, lines in programs.items():
            text = '\n'.join(lines) + '\n'
            if not (folder / file).exists() or (folder / file).read_text('utf-8') != text:
                (folder / file).write_text(text, 'utf-8')
        yield from check_printed(block, folder, setup)
        count += len(split_commands(block))
    print(f'{count} commands were run')
    if count < 10:
        yield 'there is next to nothing to run'


def try_itself():
    program = 'one\n    two\n\nfive\n'
    good = '```python\none\n\nfive\n```\n\nThen\n\n```python\none\n    two\n```\n'
    planted = {
        'a line that is another one': good.replace('two', 'too'),
        'a line too many': good.replace('    two\n', '    two\n    three\n'),
        'a block that is missing': good[:good.index('Then')],
        'a beginning that is nowhere': good.replace('one\n    two', 'nil\n    two'),
        'a beginning that is there twice': good.replace('\nfive', '\none\nfive'),
        'a block that adds nothing': good + '```python\none\n    two\n```\n',
    }
    failures = [f'a clean tutorial: {problem}' for problem in find_problems(good, {'your_host.py': program})]
    failures += [f'not found: {what}' for what, document in planted.items()
                 if not find_problems(document, {'your_host.py': program})]
    with tempfile.TemporaryDirectory() as folder:
        printed = Block(1, 'console', ['$ echo out; echo err >&2', 'out', 'err'])
        failures += list(check_printed(printed, folder))
        printed.lines[2] = 'another'
        if not list(check_printed(printed, folder)):
            failures.append('not found: something else is printed')
    return failures


def main(language='', stage='', home=''):
    problems = try_itself()
    for each in [language] if language else ['cpp', 'python']:
        problems += [f'docs/tutorial-{each}.md: {problem}' for problem in find_problems(read_tutorial(each), read_finished(each))]
    if language and not problems:
        os.environ['HOME'] = home
        folder = pathlib.Path(home) / 'your_host'
        shutil.rmtree(folder, ignore_errors=True)
        folder.mkdir(parents=True)
        subprocess.run([PROJECT / 'examples' / 'demo' / 'build', stage, folder / 'demo-show'], check=True, stdout=subprocess.DEVNULL)
        problems += [f'docs/tutorial-{language}.md, {problem}' for problem in run_steps(language, folder)]
    print('\n'.join(problems) or 'the tutorials are true')
    return 1 if problems else 0


if __name__ == '__main__':
    sys.exit(main(*sys.argv[1:]))
