#!/usr/bin/env python3
"""Every file and every JSON that the host program writes fits its schema in docs/schemas, and a schema refuses what does not
fit. STAGE names the program. Exit code 77: skipped."""

import collections
import copy
import json
import os
import pathlib
import re
import shutil
import sys
import tempfile
import unittest
import zipfile

try:
    import jsonschema  # noqa: F401
    import websocket  # noqa: F401
except ImportError as missing:
    print(f'skipped: {missing}')
    sys.exit(77)

from page_client import PageClient
from schemas import ROOT, Draft202012Validator, Schemas
from stage_program import Headless, first_path, run, run_json

KEPT_SHOW = ROOT / 'tests' / 'shows' / '0.1.0'
SCORES = ROOT / 'examples' / 'first-score'
TRACE_SCRIPT = 'at 1 play\n'
# Of messages that come many times a second.
MOST_OF_A_TYPE = 40

schemas = Schemas()
work = tempfile.TemporaryDirectory()


def make_show(name):
    """A copy of the kept show, which has an edit of each kind, a journal and a take that broke off."""
    show = pathlib.Path(work.name) / name
    shutil.copytree(KEPT_SHOW, show)
    return show


def read_table(document, heading):
    """The words in code of the first column of a document's table."""
    text = (ROOT / 'docs' / document).read_text('utf-8').split(heading, 1)[1].lstrip('\n')
    rows = text.split('\n\n', 1)[0].splitlines()[1:]
    return {word for row in rows for word in re.findall('`([^`]+)`', row.split('|')[1])}


def check_lines(reference, path):
    for number, line in enumerate(path.read_text('utf-8').splitlines(), 1):
        schemas.require(reference, json.loads(line), f'{path.name}, line {number}')


def check_package(show):
    """Every JSON file of a show directory, by its name."""
    with zipfile.ZipFile(first_path(show, '*.showdata')) as archive:
        schemas.require('show', json.loads(archive.read('show.json')), 'show.json')
    by_name = {'*.logdata': 'logdata', 'settings.json': 'settings', 'scores/*.measures.json': 'score-measures',
               'webPasscodes': 'web-passcodes', 'midiCommandSettings': 'midi-command-settings',
               'midiTimeCodeSettings': 'midi-time-code-settings'}
    for pattern, reference in by_name.items():
        for path in show.glob(pattern):
            schemas.require(reference, json.loads(path.read_text('utf-8')), path.name)
    for path in show.glob('*.journal'):
        check_lines('logdata-journal', path)
    for path in show.glob('versions.notes'):
        check_lines('versions-notes', path)
    for path in show.glob('takes/*.take'):
        check_take(path)


def check_take(path):
    for number, line in enumerate(path.read_text('utf-8').splitlines(), 1):
        where = f'{path.name}, line {number}'
        if found := re.search(r' (?:state|restore) (\{.*\})', line):
            schemas.require('flow-state', json.loads(found[1]), where)
        elif found := re.search(r' edit shown \d+ (\{.*\})', line):
            schemas.require('log-change', json.loads(found[1]), where)


def find_trace_problem(trace, events):
    for number, line in enumerate(trace.splitlines(), 1):
        fields = line.split('\t')
        if len(fields) != 4 or not fields[0].isdigit() or not fields[1].isdigit() or not fields[3]:
            return f'line {number} is not frame, tick, event and details: {line}'
        if fields[2] not in events:
            return f'line {number} has an event that docs/trace.md does not have: {fields[2]}'
    return ''


class Files(unittest.TestCase):
    def test_imported_and_edited_show(self):
        show = pathlib.Path(work.name) / 'imported'
        run('import', SCORES, '--written', '-o', show, '--title', 'Imported')
        run('edit', show, 'add', 'vamp', '--song', '1', '--from', '3', '--to', '4')
        run('log', show, 'use', '1.0')
        run('passcode', show, 'operate', stdin='open the door\n')
        check_package(show)
        self.assertEqual({'problems': [], 'otherVersions': []}, run_json('check', show, '--json'))

    def test_kept_shows(self):
        shows = [path for path in KEPT_SHOW.parent.iterdir() if path.is_dir()]
        self.assertIn(KEPT_SHOW, shows)
        for show in shows:
            with self.subTest(show.name):
                check_package(show)

    def test_samples_of_documents(self):
        """What the documents show is read by the program and fits the schema."""
        show = make_show('samples')
        samples = {'settings.json': ('settings.md', 'settings'), 'midiCommandSettings': ('midi.md', 'midi-command-settings')}
        for name, (document, reference) in samples.items():
            text = re.search(r'\n    \{\n.*?\n    \}\n', (ROOT / 'docs' / document).read_text('utf-8'), re.DOTALL)[0]
            (show / name).write_text(text, 'utf-8')
            schemas.require(reference, json.loads(text), document)
        (show / 'midiTimeCodeSettings').write_text(json.dumps(
            {'active': True, 'frameRate': '25', 'output': 'desk:in', 'onJump': 'runOn', 'hoursAreSongNumbers': True,
             'songOffsets': [{'song': '1', 'offset': '00:10:00:00'}]}), 'utf-8')
        check_package(show)
        problems = run_json('check', show, '--json', code=1)['problems']
        named = [problem for problem in problems if 'midi' in problem or problem.startswith('settings.json: ')]
        self.assertEqual([], [problem for problem in named if 'SoundFont' not in problem])

    def test_trace(self):
        show = make_show('traced')
        events = read_table('trace.md', '\n| event | details |\n')
        (show / 'script').write_text(TRACE_SCRIPT, 'utf-8')
        trace = run('render', show, '--song', '2', '--script', show / 'script', '--trace', '-', '--out', show / 'out.wav')
        self.assertEqual('', find_trace_problem(trace, events))
        self.assertGreater(len(trace.splitlines()), 20)
        for planted in ('0\t0\tstart', 'x\t0\tstart\t-', '0\t0\tflight\t-'):
            self.assertNotEqual('', find_trace_problem(f'{trace}{planted}\n', events), planted)


class Outputs(unittest.TestCase):
    def test_of_commands(self):
        show = make_show('asked')
        for reference, words in {
                'info': ('info', show, '--json'),
                'edit-list': ('edit', show, 'list', '--json'),
                'log-list': ('log', show, 'list', '--json'),
                'log-show': ('log', show, 'show', '1.2', '--json'),
                'log-diff': ('log', show, 'diff', '1.0', '1.2', '--json'),
                'devices': ('devices', '--json'),
                'sound-fonts': ('devices', '--sounds', '--json')}.items():
            schemas.require(reference, run_json(*words), ' '.join(map(str, words)))
        schemas.require('check', run_json('check', show, '--json', code=1), 'check')

    def test_of_a_performance(self):
        show = make_show('played')
        (show / 'settings.json').write_text(json.dumps({
            'groups': [{'name': 'tune', 'channels': [1]}],
            'oscTargets': [{'name': 'lights', 'host': '127.0.0.1', 'port': 9, 'transport': 'udp'}]}), 'utf-8')
        play = Headless(show, '--output', 'null', '--web', '127.0.0.1:0', '--osc', '127.0.0.1:0')
        self.addCleanup(play.end)
        url = play.wait_for('message')['sentence']
        while 'http' not in url:
            url = play.wait_for('message')['sentence']
        page = PageClient(re.search('http://[^ ]*[0-9]', url)[0])
        self.addCleanup(page.end)
        page.wait_for(type='state')
        play.wait_for('song', song='1')
        schemas.require('show-lock', json.loads((show / 'show.lock').read_text('utf-8')), 'show.lock')

        self.press_all(play)
        self.talk(page)
        check_lines('logdata-journal', first_path(show, 'show-1.2.logdata.journal'))
        self.ask_all(page)
        play.press('stop')
        play.wait_for('stopped')
        play.press('save')
        page.wait_for(type='edits', unsaved=False)
        play.quit()
        page.end()

        for event in play.events:
            schemas.require('headless-event', event, f'headless {event["event"]}')
        for message in page.sent:
            schemas.require('web-client-message', message, 'sent')
        seen = collections.Counter()
        for message in page.messages:
            seen[message['type']] += 1
            if seen[message['type']] <= MOST_OF_A_TYPE:
                schemas.require('web-server-message', message, f'web {message["type"]}')
        check_package(show)
        self.assert_covered(play, page)

    def press_all(self, play):
        """Through a loop, a seek, a caesura, a fermata and the end of a song."""
        play.press('status')
        play.wait_for('state')
        play.press('hurry')
        play.wait_for('error')
        play.press('load 2')
        play.wait_for('song', song='2')
        play.press('tempo 200%')
        play.press('seek 3:2')
        play.wait_for('put')
        play.press('go\ngo')
        play.wait_for('press', outcome='refused')
        play.wait_for('caesura')
        play.press('continue')
        play.press('seek 6')
        play.wait_for('jump', reason='seek')
        play.wait_for('hold')
        play.press('status')
        self.assertEqual('holding', play.wait_for('state')['motion'])
        play.press('exit')
        play.wait_for('release')
        play.press('next')
        play.wait_for('press', press='next')

    def talk(self, page):
        page.send(type='time', t=12.5)
        page.wait_for(type='time', t=12.5)
        page.send(type='press', line='transpose 1', id=7)
        page.wait_for(type='record', id=7, outcome='taken')
        page.send(type='edit', line='add marker 7 --text "here"', song='2', id='mark')
        page.wait_for(type='record', id='mark', outcome='taken')
        page.wait_for(type='edits', unsaved=True)
        page.send(type='press', line='hurry', id=8)
        page.wait_for(type='answer', id=8)
        page.send(type='press', line='set press-guard 300', id=9)
        page.wait_for(type='answer', id=9, outcome='taken')
        page.wait_for(type='heartbeat')

    def ask_all(self, page):
        for reference, path in {'show': '/api/show', 'verbs': '/api/verbs', 'state': '/api/state', 'song': '/api/song/2',
                                'versions': '/api/versions', 'difference': '/api/versions/1.0/to/now',
                                'midiInputs': '/api/midi-inputs', 'settings': '/api/settings', 'session': '/api/session'}.items():
            status, answer = page.ask(path)
            self.assertEqual(200, status, path)
            schemas.require(f'web-answer#{reference}', answer, path)
        for reference, path, status in (('record', '/api/conduct-beat', 200), ('login', '/api/login', 200),
                                        ('logout', '/api/logout', 200), ('sentence', '/api/hurry', 404)):
            got, answer = page.ask(path, {'passcode': 'any passcode'} if reference == 'login' else {})
            self.assertEqual(status, got, path)
            schemas.require(f'web-answer#{reference}', answer, path)

    def assert_covered(self, play, page):
        """Most of what the documents list was there to be looked at; nothing else was."""
        documented = read_table('live.md', '\n| event | further members |\n')
        seen = {event['event'] for event in play.events}
        self.assertEqual(set(), seen - documented)
        # A device that is late, and a show that has nothing after it, are not made here.
        self.assertEqual({'late', 'no-next-song', 'song-end', 'release', 'hold'} & (documented - seen), documented - seen)
        types = read_table('web.md', '### From the server\n\n| type |')
        self.assertEqual(types, {message['type'] for message in page.messages})


class Refusals(unittest.TestCase):
    """After the others: they have left a document of each schema."""

    def test_schemas_are_schemas(self):
        for name, schema in schemas.open.items():
            Draft202012Validator.check_schema(schema)
            self.assertTrue(schema.get('title') and schema.get('description'), name)
            if name != 'common.schema.json':
                self.assertIn(name, schemas.used, 'no document was checked against it')

    def test_a_document_of_another_form(self):
        self.assertGreater(len(schemas.documents), 20)
        for reference, document in schemas.documents.items():
            for what, mutated in mutate(document):
                with self.subTest(reference, what=what):
                    self.assertNotEqual('', schemas.find_problem(reference, mutated))

    def test_what_the_program_refuses(self):
        """Schema and reader agree."""
        show = make_show('refused')
        for text in ('{"pressGuardMs": 10001}', '{"pressGuardMs": "250"}', '{"clickOnMain": true}', '{"countIn": -1}',
                     '{"sounds": [{"name": "a", "trim": 13}]}', '{"sounds": [{"trim": 1}]}', '{"groups": [{"name": "main"}]}',
                     '{"groups": [{"name": "two words"}]}', '{"groups": [{"name": "a", "reverbDb": "on"}]}',
                     '{"oscTargets": [{"name": "a", "port": 0}]}', '{"oscTargets": [{"name": "a", "transport": "midi", "port": 9}]}',
                     '{"changeLog": "a/b"}', '{"outputs": [{"backend": "alsa"}]}', '[]'):
            with self.subTest(text):
                (show / 'settings.json').write_text(text, 'utf-8')
                self.assertNotEqual('', schemas.find_problem('settings', json.loads(text)))
                self.assertIn('settings.json', run('check', show, '--json', code=1))
        (show / 'settings.json').unlink()
        good = json.loads((show / 'show-1.2.logdata').read_text('utf-8'))
        for path, value in {('formatVersion',): 2, ('songs', 0, 'attacca'): 3, ('songs', 0, 'edits', 0, 'maxCount'): 10000,
                            ('songs', 0, 'edits', 0, 'count'): 2, ('songs', 0, 'edits', 1, 'kind'): 'Loop',
                            ('songs', 0, 'edits', 3, 'semitones'): 25, ('songs', 1, 'edits', 5, 'address'): 'cue',
                            ('songs', 0, 'edits', 0, 'start'): -1, ('songs', 1, 'number'): ''}.items():
            with self.subTest(path):
                bad = copy.deepcopy(good)
                target = bad
                for step in path[:-1]:
                    target = target[step]
                target[path[-1]] = value
                (show / 'show-1.2.logdata').write_text(json.dumps(bad), 'utf-8')
                self.assertNotEqual('', schemas.find_problem('logdata', bad))
                self.assertIn('show-1.2.logdata', run('check', show, '--json', code=1))


def mutate(document):
    """Forms of the document that must be refused: another type, members missing, added, of another type."""
    if isinstance(document, list):
        yield 'an object in place of the list', {}
        yield 'an element of another type', [*document, 17]
        return
    yield 'a list in place of the object', []
    yield 'an unknown member', {**document, 'planted': 1}
    for name in document:
        yield f'{name} of another type', {**document, name: {'planted': [1]}}


if __name__ == '__main__':
    loader = unittest.TestLoader()
    suite = unittest.TestSuite(loader.loadTestsFromTestCase(case) for case in (Files, Outputs, Refusals))
    result = unittest.TextTestRunner(verbosity=2).run(suite)
    work.cleanup()
    sys.exit(0 if result.wasSuccessful() else 1)
