#!/usr/bin/env python3
"""Every link of the documents leads somewhere, its anchor is a heading there, and a reader gets from README.md to each document.
First the check itself is tried on planted mistakes."""

import pathlib
import re
import sys
import tempfile

LEFT_OUT = {'build', 'node_modules', '.git', '.cache'}
LINK = re.compile(r'!?\[[^\]]*\]\(\s*<?([^)>\s]+)>?(?:\s+"[^"]*")?\s*\)')
REFERENCE = re.compile(r'^\[[^\]]+\]:\s+(\S+)')
# Also in help, comments and scripts a document is named by its path.
NAMED = re.compile(r'\bdocs/[A-Za-z0-9_-]+\.md\b')
NAMING = ('*.cpp', '*.h', '*.mjs', '*.txt', '*.cmake', '*.json')


def find_files(root, pattern):
    return [path for path in sorted(root.rglob(pattern)) if not LEFT_OUT & set(path.relative_to(root).parts)]


def read_prose(path):
    """The lines with their numbers, without code."""
    fence = None
    for number, line in enumerate(path.read_text('utf-8').splitlines(), 1):
        mark = re.match(r'\s*(```|~~~)', line)
        if mark:
            fence = None if fence == mark[1] else fence or mark[1]
            continue
        if fence is None and not line.startswith('    '):
            yield number, re.sub(r'(`+)(?:(?!\1).)+\1', '', line)


def find_anchors(path):
    """The names of the headings, as they are made where Markdown is shown."""
    anchors = set()
    for line in path.read_text('utf-8').splitlines():
        if heading := re.match(r'#{1,6}\s+(.*?)\s*#*$', line):
            words = re.sub(r'\[([^\]]*)\]\([^)]*\)', r'\1', heading[1]).lower()
            name = re.sub(r'[^\w\- ]', '', words).replace(' ', '-')
            count = 0
            while (name if count == 0 else f'{name}-{count}') in anchors:
                count += 1
            anchors.add(name if count == 0 else f'{name}-{count}')
    return anchors


def find_problem(path, target):
    """Why a link of the document leads nowhere; empty where it does not."""
    file, _, anchor = target.partition('#')
    place = (path.parent / file).resolve() if file else path
    if not place.exists():
        return f'there is no {file}'
    if anchor and (place.suffix != '.md' or anchor not in find_anchors(place)):
        return f'{place.name} has no heading #{anchor}'
    return ''


def check(root):
    """A sentence for each problem."""
    problems = []
    links = {}
    for path in find_files(root, '*.md'):
        links[path] = set()
        for number, line in read_prose(path):
            targets = LINK.findall(line) + REFERENCE.findall(line)
            for target in targets:
                if re.match(r'[a-z]+:', target):
                    continue
                if problem := find_problem(path, target):
                    problems.append(f'{path.relative_to(root)}:{number}: {problem}')
                else:
                    links[path].add((path.parent / target.partition('#')[0]).resolve())
    for path in (found for pattern in NAMING for found in find_files(root, pattern)):
        for name in set(NAMED.findall(path.read_text('utf-8', errors='replace'))):
            if not (root / name).exists():
                problems.append(f'{path.relative_to(root)}: there is no {name}')
    reached, ahead = set(), [root / 'README.md']
    while ahead:
        path = ahead.pop()
        if path not in reached:
            reached.add(path)
            ahead.extend(target for target in links.get(path, ()) if target.suffix == '.md')
    problems += [f'{path.relative_to(root)}: no link leads there from README.md'
                 for path in sorted((root / 'docs').glob('*.md')) if path not in reached]
    return problems


def find_planted(files):
    with tempfile.TemporaryDirectory() as folder:
        root = pathlib.Path(folder).resolve()
        for name, text in files.items():
            (root / name).parent.mkdir(exist_ok=True)
            (root / name).write_text(text, 'utf-8')
        return check(root)


def try_itself():
    page = '# One\n\n## Two words, `code`\n\n## Two words, code\n\n[up](../README.md)\n'
    good = {'README.md': '[a](docs/a.md#two-words-code-1)\n\n    [not](a-link.md)\n\n`[nor](this.md)`\n', 'docs/a.md': page}
    planted = {
        'a file that is missing': ({'README.md': good['README.md'] + '[b](docs/b.md)'}, 'README.md:6: there is no docs/b.md'),
        'a picture that is missing': ({'README.md': good['README.md'] + '![b](b.png)'}, 'README.md:6: there is no b.png'),
        'a heading that is missing': ({'docs/a.md': page + '[x](#three)'}, 'docs/a.md:8: a.md has no heading #three'),
        'a document that is alone': ({'docs/b.md': page}, 'docs/b.md: no link leads there from README.md'),
        'a name in help': ({'stage/help.cpp': '"See docs/c.md."'}, 'stage/help.cpp: there is no docs/c.md'),
    }
    failures = [f'a clean tree: {problem}' for problem in find_planted(good)]
    for what, (files, expected) in planted.items():
        found = find_planted({**good, **files})
        if found != [expected]:
            failures.append(f'{what}: {found}')
    return failures


if __name__ == '__main__':
    found_problems = try_itself() + check(pathlib.Path(__file__).resolve().parents[2])
    print('\n'.join(found_problems) or 'every link leads somewhere')
    sys.exit(1 if found_problems else 0)
