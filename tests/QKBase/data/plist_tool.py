"""Property lists through Python's plistlib, as type-exact JSON.

  plist_tool.py read FILE            prints what plistlib reads from FILE
  plist_tool.py write FILE xml|binary writes a tree of its own choosing to FILE, then
                                     prints what plistlib reads back from it
  plist_tool.py write-nul FILE       writes a binary list whose key holds U+0000

The JSON picture of a value: integers as decimal text, reals as their IEEE bits, dates as
milliseconds from 2001, data as hex; each as [type, value].
"""
import datetime
import json
import plistlib
import struct
import sys

REFERENCE = datetime.datetime(2001, 1, 1)
D = datetime.datetime
TREE = {
    'text': 'Gr\u00fc\u00dfe \u65e5\u672c\u8a9e \U0001F3B9 <tag> & "quoted" \'single\' ]]>',
    'ascii': 'plain', 'empty': '',
    'integers': [0, 1, -1, 127, 128, 255, 256, -128, -129, 65535, 65536, -32769,
                 2**31, -2**31 - 1, 2**32, 2**63 - 1, -2**63],
    'reals': [0.0, 0.1, -2.5e-300, 1e300, 1 / 3, -7.25],
    'booleans': [True, False],
    'dates': [D(2024, 2, 29, 13, 45, 30, 123000), D(1969, 7, 20, 20, 17, 40, 250000),
              D(2001, 1, 1), D(2000, 12, 31, 23, 59, 59, 500000), D(2001, 1, 1, 0, 0, 0, 750000),
              D(1850, 3, 4, 5, 6, 7), D(2200, 1, 1)],
    'data': b'\x00\x01\xff\x00tail\x00', 'no data': b'',
    'nested': {'list': [{}, [], {'k': [1, {'deep': True}]}]},
    'keys': {'\u00fcn\u00efcode key': 1, '<tag>&amp;': 2},
}


def canonical(v):
    if isinstance(v, bool): return ['bool', v]
    if isinstance(v, int): return ['int', str(v)]
    if isinstance(v, float): return ['real', struct.pack('>d', v).hex()]
    if isinstance(v, str): return ['string', v]
    if isinstance(v, bytes): return ['data', v.hex()]
    if isinstance(v, datetime.datetime):
        return ['date', str(round((v - REFERENCE) / datetime.timedelta(milliseconds=1)))]
    if isinstance(v, list): return ['array', [canonical(x) for x in v]]
    if isinstance(v, dict): return ['dict', {k: canonical(x) for k, x in v.items()}]
    return ['unexpected', type(v).__name__]


command, path = sys.argv[1], sys.argv[2]
if command == 'write':
    fmt = plistlib.FMT_BINARY if sys.argv[3] == 'binary' else plistlib.FMT_XML
    with open(path, 'wb') as f:
        plistlib.dump(TREE, f, fmt=fmt)
elif command == 'write-nul':
    with open(path, 'wb') as f:
        plistlib.dump({'\u00e9\x00b': 'v'}, f, fmt=plistlib.FMT_BINARY)
with open(path, 'rb') as f:
    print(json.dumps(canonical(plistlib.load(f))))
