#!/usr/bin/env python3
"""Writes the seeds of the fuzz targets but those of equations, which fuzz_tables writes.

Small inputs, one for each kind of statement, entry or field; run again after changing them:
    Fuzz/make-seeds.py
"""
import pathlib
import shutil
import struct
import zlib

FOLDER = pathlib.Path(__file__).resolve().parent
HEADER = "// ~->[DNET-1]->~\n\n"

AB = """	node A {
		discrete = TRUE;
		states = (no, yes);
		kind = NATURE;
		chance = CHANCE;
		parents = ();
		probs = (0.25, 0.75);
		};
"""
# One per statement: (name, statements of the net, statements of node B, which follows A).
NET_STATEMENTS = {
    "title": 'title = "A net";', "comment": 'comment = "two\\nlines \\x41";', "author": 'author = "N. N.";',
    "changed": 'whochanged = "me"; whenchanged = 1162607529;', "dims": "numdimensions = 2;",
    "autocompile": "AutoCompile = TRUE; autoupdate = TRUE;", "autoupdate": "autoupdate = FALSE;",
    "mostprobable": "mostprobable = TRUE;", "elimorder": "ElimOrder = (B, A);",
    "nodeset": "NodeSet = ( Group : (A, B) );", "user": "user { key = \"value\"; };",
    "visual": "visual V1 { defdispform = BELIEFBARS; nodelabeling = TITLE; };",
    "define": "define node D { discrete = TRUE; states = (x, y); };",
    "unknown": "somethingelse = (1, {2; 3}, \"four\");", "undefined": "eqncontext = \"\";",
}
NODE_STATEMENTS = {
    "states": "discrete = TRUE; states = (low, high);",
    "numstates": "discrete = TRUE; numstates = 3;",
    "statetitles": 'states = (l, h); statetitles = ("Low", "High \\"one\\""); StateComments = ("", "top");',
    "levels": "discrete = FALSE; levels = (0, 1.5, INFINITY);",
    "discretelevels": "discrete = TRUE; numstates = 2; levels = (10, 20);",
    "continuous": 'discrete = FALSE; units = "kg"; value = 3.25;',
    "measure": "discrete = TRUE; measure = ORDINAL; states = (l, h);",
    "kinds": "discrete = TRUE; states = (l, h); kind = DECISION; chance = UNKNOWN_CHANCE;",
    "utility": "discrete = FALSE; measure = RATIO; kind = UTILITY; chance = DETERMIN; parents = (A); "
               "functable = (5, -2.5);",
    "constant": "discrete = TRUE; states = (l, h); kind = CONSTANT; value = #1;",
    "parents": "states = (l, h); parents = (A); probs = ((0.5, 0.5), (1, 0));",
    "inputs": "states = (l, h); parents = (A); inputs = (Link); probs = ((0.5, 0.5), (1, 0));",
    "defaultprobs": "states = (l, h); parents = (A); probs = (@imposs, (0.125, 0.875));",
    "functable": "states = (l, h); chance = DETERMIN; parents = (A); functable = (#1, l);",
    "undeffunc": "states = (l, h); chance = DETERMIN; parents = (A); functable = (*, @imposs);",
    "numcases": "states = (l, h); parents = (A); probs = ((0.5, 0.5), (1, 0)); numcases = (3, 12.5); "
                "ExperBase = 1;",
    "equation": 'states = (l, h); parents = (A); equation = "B (A) = A == #yes"; EqnDirty = TRUE;',
    "delays": "states = (l, h); parents = (A); delays = ((1)); persist = (TRUE);",
    "position": "states = (l, h); position = (1, -2);",
    "texts": 'states = (l, h); title = "B"; comment = "c"; author = "a"; whochanged = "w"; whenchanged = 5;',
    "evidence": "states = (l, h); evidence = h;", "value": "states = (l, h); value = #1;",
    "likelihood": "states = (l, h); likelihood = (0.5, 1);", "finding": "states = (l, h); Finding = NotState 1;",
    "belief": "states = (l, h); belief = (0.5, 0.5);",
    "visual": "states = (l, h); visual V1 { center = (10, 20); dispform = LABELBOX; };",
    "forward": "states = (l, h); parents = (Z); probs = ((0.5, 0.5), (1, 0));}; node Z { states = (a, b);",
    "comments": "states = (l /* in */, h); // line\n /# outer /# inner #/ #/ title = \"t\";",
    "user": "states = (l, h); user { a = \"b\"; c = \"\\\\d\"; };",
    "inherit": "states = (l, h); }; define node Q { kind = DECISION; }; Q C { numstates = 2;",
}


def net(name, of_net="", of_node="states = (l, h);"):
    return f"{HEADER}bnet {name} {{\n\t{of_net}\n{AB}\tnode B {{\n\t\t{of_node}\n\t\t}};\n\t}};\n"


def text_nets():
    nets = {f"net-{name}": net("N", of_net=text) for name, text in NET_STATEMENTS.items()}
    nets.update({f"node-{name}": net("N", of_node=text) for name, text in NODE_STATEMENTS.items()})
    nets["wide"] = b"\xff\xfe" + net("W").encode("utf-16-le")
    nets["mark"] = b"\xef\xbb\xbf" + net("M").encode()
    nets["cr"] = net("C").replace("\n", "\r\n")
    for path in sorted((FOLDER.parent / "Examples").glob("*.dne")):
        nets[path.stem] = path.read_bytes()
    return {name: text.encode() if isinstance(text, str) else text for name, text in nets.items()}


def gzipped(text, level=6):
    deflate = zlib.compressobj(level, zlib.DEFLATED, 31)
    return deflate.compress(text) + deflate.flush()


def tala(text, **changed):
    """A file with any part other than it should be."""
    member = changed.get("member", gzipped(text, changed.get("level", 6)))
    readable = changed.get("readable", b'// comment = "x";\r\n// encrypt = N\r\n')
    fields = dict(version=10, reserved=0, magic=0x70EACA50, length=96, size=len(text), crc=zlib.crc32(text),
                  member_size=len(member))
    fields.update({key: value for key, value in changed.items() if key in fields})
    line = "// ~->[TALA=1]->~ %d %d\r\n" % (changed.get("readable_size", len(readable)),
                                            changed.get("line_size", len(text)))
    block = struct.pack("<IIQQQQQ48x", *fields.values())
    return line.encode() + readable + block + member


def containers():
    text = net("T").encode()
    files = {"plain": tala(text), "stored": tala(text, level=0), "large": tala(net("L", "comment = \"%s\";" %
             ("x" * 20000)).encode()), "nochecks": tala(text, crc=0, member_size=0),
             "named": tala(text, member=b"\x1f\x8b\x08\x08" + bytes(5) + b"\x03name\0" + gzipped(text)[10:]),
             "behind": tala(text, member=gzipped(text) + b"more"), "cipher": tala(text, readable=b"// encrypt = G\r\n")}
    boundaries = dict(version=(0, 999, 1000), magic=(0,), length=(0, 95, 97, 2**64 - 1),
                      size=(0, 1, len(text) - 1, len(text) + 1, 2**31, 2**63, 2**64 - 1), crc=(1, 2**32),
                      member_size=(1, 2**64 - 1), readable_size=(0, 10**6, 2**64 - 1),
                      line_size=(0, 10**9, 2**64 - 1))
    for field, values in boundaries.items():
        for i, value in enumerate(values):
            files[f"{field}-{i}"] = tala(text, **{field: value})
    return files


def payloads():
    text = net("T").encode()
    files = {f"text-{letter}": bytes([i, 3, 0, 200]) + text for i, letter in enumerate("GBS")}
    files.update({f"member-{letter}": bytes([3 + i, 1, 1, 40]) + gzipped(text) for i, letter in enumerate("GBS")})
    files["cut"] = bytes([6, 0, 0, 250]) + text
    files["longer"] = bytes([13, 48, 0, 20]) + text
    for name in ("node-parents", "net-comment", "node-evidence", "wide"):
        files[name] = bytes([0, 0, 0, 5]) + text_nets()[name]
    return files


CASES = {
    "plain": (0, "A,B\nno,low\nyes,high\n*,middle\n"), "tabs": (0, "A\tB\nno\tlow\n"),
    "blanks": (0, "A   B\nno   low\n"), "crlf": (0, "A,B\r\nno,low\r\n"), "mark": (0, "\ufeffA,B\nno,low\n"),
    "comments": (0, "// ~->[CASE-1]->~\n// what\nA,B\n/* in\nbetween */ no,low\n/# a /# b #/ #/\nyes,high"),
    "weights": (0, "IDnum,A,NumCases,B\n1,no,2.5,low\n*,yes,1,#2\n"), "ragged": (0, "A,B\nno\nyes,low,more\n"),
    "quoted": (0, 'A,"B"\n"no","low"\n"ye""s",low\n'), "numbers": (1, "A,C,D,N,L\nno,1.5,2.25,#3,20\nyes,-1e9,9,0,15\n"),
    "uncertain": (1, "A,B,C\n{0.3 0.7},{low 0.5; high 0.5},[1, 2]\n~no,{1,2,3},3+-1\n"),
    "bounds": (1, "D,C\n<1,>2\n[0.5,1],4\n"), "new": (2, "X,Y,Z\n1,2.5,red\n3,*,green\n"),
    "unknown": (0, "A,Other\nno,5\nperhaps,6\n"), "empty": (0, "A,B\n"), "cr": (0, "A,B\rno,low\ryes,high\r"),
}


def cases():
    files = {}
    for name, (kind, text) in CASES.items():
        files[name] = bytes([kind, 0]) + text.encode()
        files[name + "-answered"] = bytes([kind + 6, 1 if name == "tabs" else 2 if name == "blanks" else 0]) + text.encode()
    return files


TEXTS = ["1", "-0.0", ".5", "1e308", "1e309", "1e-320", "1e-400", "123456789012345678901234567890", "0.1e1",
         "1.17549429e-38", "3.4028236e38", "+7", "1_000", "nan", "inf", "0x10", "00000000000000000001.5",
         '"a\\n\\"b\\x41"', "/# a /# b #/ #/ word", "// x\n;", "{ a { b } }", "(1, (2, 3));", ">-node '>-Bnet-s'",
         "%s %n %d", "\u00e9\u20ac\U0001F600", "x" * 600, "\x1b[31m", "word1 = \"text\";", "/* open"]


ARGUMENTS = {
    "state": ["-f", "A=yes"], "states": ["-f", "A=no", "--finding", "B=#2", "-fC=#1"],
    "not": ["--not", "B=low", "--not", "B=middle"], "all-ruled-out": ["--not", "A=no", "--not", "A=yes"],
    "likelihood": ["--likelihood", "B=0.2,0.5,1"], "likelihood-signs": ["--likelihood", "A=+1,-0.5"],
    "likelihood-count": ["--likelihood", "A=1,2,3"], "likelihood-text": ["--likelihood=A=1,,x"],
    "value": ["--value", "C=1.75", "--value", "R=-1e300"], "value-outside": ["--value", "C=11"],
    "value-text": ["--value", "C=nan"], "case": ["--findings", "abc"], "third": ["--findings", "abc", "--case", "3"],
    "no-case": ["--findings", "abc", "--case", "99"], "case-0": ["--findings", "abc", "--case", "0"],
    "no-file": ["--findings", "abcde"], "saved": ["--no-saved-findings", "-f", "E=y"],
    "saved-contradicted": ["-f", "E=y"], "constant": ["-f", "K=off", "-f", "U=#0", "-f", "W=go"],
    "misspelt": ["-f", "a=yes"], "no-state": ["-f", "D=#2"], "form": ["-f", "=yes"], "inconsistent": ["-f", "A=yes", "-f", "B=low"],
    "help": ["--help"], "terminal": ["-f", "A=\x1b[31m"], "wide": [b"-f", b"A=\xff\xfey"], "unknown": ["--nothing"],
}


def arguments():
    return {name: b"\n".join(a if isinstance(a, bytes) else a.encode() for a in given)
            for name, given in ARGUMENTS.items()}


UNIFORM, CERTAIN, IMPOSSIBLE, MISSING, ZEROS, NEARLY, PARTLY, WEIGHTS = range(8)
POSITIVE, NEGATIVE, LIKELIHOOD, RETRACT, COMPARE, CONFIGURATION = range(6)


def inference(nodes, steps, way=0, is_reversed=0):
    """Nodes are (number of states, bits of the parents, rows), steps are bytes."""
    out = [0, len(nodes) - 1, is_reversed]
    for states, parents, rows in nodes:
        out += [states - 1, parents] + rows
    return bytes(out + [way] + sum(map(list, steps), []))


def inferences():
    pair = [(2, 0, [WEIGHTS, 1, 3]), (3, 1, [WEIGHTS, 2, 1, 1, WEIGHTS, 0, 1, 3])]
    certain = [(2, 0, [WEIGHTS, 1, 1]), (2, 1, [CERTAIN, CERTAIN + 16])]
    loop = [(2, 0, [WEIGHTS, 1, 3])] + [(2, 1, [WEIGHTS, 1, 4, WEIGHTS, 5, 1])] * 2 + [
        (2, 6, [WEIGHTS, 1, 9, WEIGHTS, 2, 1, CERTAIN, WEIGHTS, 7, 3])]
    chain = [(4, 0, [WEIGHTS, 1, 2, 3, 4])] + [(4, 1 << k, [WEIGHTS, 9, 2, k, 1] * 4) for k in range(5)]
    enter = [(POSITIVE, 1, 1), (COMPARE, 0), (RETRACT, 1), (NEGATIVE, 1, 0), (LIKELIHOOD, 0, 0, 255, 20)]
    best = [(CONFIGURATION + 6 * nth, 0) for nth in range(5)]
    files = {
        "one": inference([(1, 0, [CERTAIN])], []), "pair": inference(pair, enter), "best": inference(pair, best),
        "no-tables": inference([(3, 64, []), (4, 65, [])], enter + best),
        "impossible-row": inference([pair[0], (2, 1, [IMPOSSIBLE, CERTAIN])], enter),
        "zero-row": inference([pair[0], (2, 1, [ZEROS, CERTAIN])], [(POSITIVE, 0, 0)]),
        "missing": inference([pair[0], (3, 1, [MISSING, PARTLY, 1, 2, 3])], enter + best),
        "all-impossible": inference([(2, 0, [IMPOSSIBLE]), (2, 1, [CERTAIN, CERTAIN])], enter + best),
        "inconsistent": inference(certain, [(POSITIVE, 0, 0), (POSITIVE, 1, 1), (COMPARE, 0), (RETRACT, 0)]),
        "refused": inference(certain, [(POSITIVE, 0, 0), (POSITIVE, 1, 1), (NEGATIVE, 1, 0)], way=1),
        "nearly": inference([pair[0], (4, 1, [NEARLY, NEARLY + 32])], enter, way=1),
        "loop": inference(loop, enter + best), "loop-auto": inference(loop, enter, way=1),
        "loop-order": inference(loop, enter, way=0x16), "loop-reversed": inference(loop, enter, 0, 1),
        "chain": inference(chain, enter + best), "chain-order": inference(chain, enter * 2, way=0x23),
    }
    return files


def write(target, files):
    folder = FOLDER / "Seeds" / target
    shutil.rmtree(folder, ignore_errors=True)
    folder.mkdir(parents=True)
    for name, contents in files.items():
        (folder / name).write_bytes(contents)


# One small net in each format of another program, with what that format has of its own.
FOREIGN = {
    "bif": 'network n { property a = "b"; }\nvariable A { type discrete [ 2 ] { yes, no }; property label = x; }\n'
           'variable "B c" { type discrete [2] { 0, 1 }; }\nprobability ( A ) { default 0.25 0.75; }\n'
           'probability ( "B c" | A ) { (yes) .1, .9; (*) : 1 0; }\n',
    "xml": '<?xml version="1.0"?><BIF VERSION="0.3"><NETWORK><NAME>n</NAME><VARIABLE TYPE="decision"><NAME>D</NAME>'
           '<OUTCOME>a</OUTCOME><OUTCOME>b</OUTCOME><PROPERTY>fast = D[1,2]</PROPERTY></VARIABLE>'
           '<VARIABLE TYPE="utility"><NAME>U</NAME><OUTCOME>0</OUTCOME></VARIABLE><DEFINITION><FOR>U</FOR>'
           '<GIVEN>D</GIVEN><TABLE>1 <!-- x --> -2.5</TABLE></DEFINITION></NETWORK></BIF>',
    "net": 'class C { inputs = (); node A { states = ("a" "b" "c"); subtype = interval; state_values = (-infinity 0 1 5);'
           ' position = (1 2); } % x\nutility U { label = "\\"u\\""; } potential (A | ) { data = (1 2 1); experience = 3; }'
           ' potential (U | A) { data = (1 2 3); } }',
    "xdsl": '<smile version="1.0" id="n"><nodes><cpt id="A"><state id="x"/><state id="y"/><probabilities>0.5 0.5'
            '</probabilities></cpt><noisymax id="B"><state id="x"/><state id="y"/><parents>A</parents><strengths>1 0'
            '</strengths><parameters>.5 .5 0 1 .1 .9</parameters></noisymax><deterministic id="C"><state id="u"/>'
            '<state id="v"/><parents>B</parents><resultingstates>v u</resultingstates></deterministic></nodes>'
            '<extensions><genie name="t"><submodel id="S"><node id="A"><name>a</name><position>0 0 4 4</position>'
            '</node></submodel></genie></extensions></smile>',
    "dsl": 'net n { HEADER = { ID = n; NAME = "t"; }; node A { TYPE = CPT; PARENTS = (); DEFINITION = { NAMESTATES = (a, b);'
           ' PROBABILITIES = (0.5, 0.5); }; }; node D { TYPE = LIST; PARENTS = (A); DEFINITION = { NAMECHOICES = (c, d); }; };'
           ' OBSERVATION_COST = { node A { COSTS = (3); }; }; };',
    "dsc": 'belief network "n"\nnode A { name: "t"; type: discrete[2] = {"a", "b"}; position: (1, 2); }\n'
           'node B { type: discrete[2] = {"a", "b"}; }\nprobability (A) { .5, .5; }\n'
           'probability (B | A) { function: max; (0): .9, .1; (1): .5, .5; }\n',
    "uai": "c x\nBAYES 2 2 2 2 1 0 # A\n2 0 1 2 .5 .5 4 .1 .9 1 0\n",
    "xbn": '<ANALYSISNOTEBOOK ROOT="n"><BNMODEL NAME="n"><VARIABLES><VAR NAME="A" XPOS="1" YPOS="2"><STATENAME>a</STATENAME>'
           '<STATENAME>b</STATENAME></VAR></VARIABLES><DISTRIBUTIONS><DIST TYPE="discrete"><PRIVATE NAME="A"/><DPIS>'
           '<DPI INDEXES="">.5 .5</DPI></DPIS></DIST></DISTRIBUTIONS></BNMODEL></ANALYSISNOTEBOOK>',
    "pgmx": '<ProbModelXML formatVersion="0.2.0"><ProbNet type="BayesianNetwork"><Variables><Variable name="A b" '
            'type="finiteStates" role="chance"><States><State name="x"/><State name="y"/></States></Variable><Variable '
            'name="B" type="finiteStates" role="chance"><States><State name="x"/><State name="y"/></States></Variable>'
            '</Variables><Potentials><Potential type="Table"><Variables><Variable name="A b"/></Variables><Values>.5 .5'
            '</Values></Potential><Potential type="Tree/ADD"><Variables><Variable name="B"/><Variable name="A b"/>'
            '</Variables><TopVariable name="A b"/><Branches><Branch><States><State name="x"/><State name="y"/></States>'
            '<Potential type="Uniform"/></Branch></Branches></Potential></Potentials></ProbNet></ProbModelXML>',
    "jgum": '{"type": "ID", "chance": ["A{x|y}"], "decision": ["D[2]"], "utility": ["U[1]"], "parents": {"A": ["D"], '
            '"U": ["A"]}, "cpt": {"A": [0.5, 0.5, 1, 0]}, "reward": {"U": [1, 2]}, "properties": {"name": "n"}}',
}
write("ForeignNetFuzz", {name: text.encode() for name, text in FOREIGN.items()})
write("NetTextFuzz", text_nets())
write("ContainerFuzz", containers())
write("PayloadFuzz", payloads())
write("CaseFileFuzz", cases())
write("CommandFuzz", arguments())
write("InferenceFuzz", inferences())
write("TextFuzz", {f"text-{i:02}": text.encode() for i, text in enumerate(TEXTS)} | {
    "wide": "w\u00efde \U0001F600".encode("utf-16-le"), "bad-utf8": b"a\xc3(\xe2\x82\xf0\x9f\x98"})
