"""The schemas of docs/schemas, as strict as tests want them: a member that they do not name is an error, also where clients
are asked to pass over it."""

import copy
import json
import pathlib
import warnings

with warnings.catch_warnings():
    warnings.simplefilter('ignore', DeprecationWarning)
    from jsonschema import Draft202012Validator, RefResolver
    from jsonschema.exceptions import best_match

ROOT = pathlib.Path(__file__).resolve().parents[2]
FOLDER = ROOT / 'docs' / 'schemas'
BASE = 'file:///schemas/'


def close(schema):
    """Refuses members without a description wherever a schema is that of a whole object."""
    if isinstance(schema, list):
        return [close(part) for part in schema]
    if not isinstance(schema, dict):
        return schema
    closed = {key: value if key in ('const', 'enum') else close(value) for key, value in schema.items()}
    names_members = any(key in schema for key in ('properties', 'allOf', 'oneOf'))
    if schema.get('type') == 'object' and names_members and 'additionalProperties' not in schema:
        closed['unevaluatedProperties'] = False
    return closed


class Schemas:
    def __init__(self):
        self.open = {path.name: json.loads(path.read_text('utf-8')) for path in sorted(FOLDER.glob('*.json'))}
        self.store = {BASE + name: close(copy.deepcopy(schema)) for name, schema in self.open.items()}
        self.used = set()
        # Of each schema one document that fits it, for mutations.
        self.documents = {}

    def find_problem(self, reference, document):
        """Why the document does not fit "settings" or "web-answer#show"; empty where it does."""
        file, _, definition = reference.partition('#')
        name = f'{file}.schema.json'
        uri = BASE + name
        schema = {'$ref': f'{uri}#/$defs/{definition}' if definition else uri}
        resolver = RefResolver(BASE, schema, store=self.store)
        error = best_match(Draft202012Validator(schema, resolver=resolver).iter_errors(document))
        self.used.add(name)
        if error is None:
            return ''
        place = '/'.join(str(part) for part in error.absolute_path)
        return f'{reference}: {place or "the whole"}: {error.message[:400]}'

    def require(self, reference, document, where):
        problem = self.find_problem(reference, document)
        if problem:
            raise AssertionError(f'{where}: {problem}')
        known = self.documents.get(reference)
        if known is None or weigh(document) > weigh(known):
            self.documents[reference] = document


def weigh(document):
    """More for more members, and of those with as many for the shorter one."""
    return (len(document) if isinstance(document, dict) else 0, -len(str(document)))
