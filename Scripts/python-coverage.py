#!/usr/bin/env python3
"""Lists the functions of the interface that the Python package cannot reach, with the reason where there
is one; fails if one has none."""

import pathlib
import re
import sys

ROOT = pathlib.Path(__file__).resolve().parents[1]

NOT_NEEDED = {
    "GetDefaultEnviron_vx": "every object knows its Application",
    "SetEnvironUserData_vx": "Application.UserData keeps a Python object",
    "GetEnvironUserData_vx": "Application.UserData keeps a Python object",
    "SetNetUserData_bn": "BNet.UserData keeps a Python object",
    "GetNetUserData_bn": "BNet.UserData keeps a Python object",
    "GetQuestionHandler_vx": "Application.QuestionHandler keeps the Python function",
    "GetProgressHandler_vx": "Application.ProgressHandler keeps the Python function",
    "GetMessageHandler_vx": "Application.MessageHandler keeps the Python function",
    "GetPasswordHandler_vx": "Application.PasswordHandler keeps the Python function",
    "ClearErrors_vx": "records become exceptions and warnings and are cleared one by one",
    "ListErrors_vx": "records become exceptions and warnings",
    "GetNetNamed_bn": "Application.GetBNet looks among the nets that Python has",
    "DupNodeList_bn": "BNodes is a Python list",
    "ClearNodeList_bn": "BNodes is a Python list",
    "AddNodeToList_bn": "BNodes is a Python list",
    "RemoveNthNode_bn": "BNodes is a Python list",
    "GetNetRandomGen_bn": "BNet.RandomGenerator keeps the Python object",
    "GetLearnerRandomGen_bn": "Learner.RandomGen keeps the Python object",
    "WriteNet_bn": "BNet.Write calls WriteNetAs_bn",
    "SetStreamEncryption_vx": "another name of SetStreamPassword_vx",
}


def main():
    listed = (ROOT / "Src/Talora/ApiFunctions.inc").read_text()
    declared = re.findall(r"^TALORA_FUNCTION\((\w+)", listed, flags=re.M)
    used = "".join(path.read_text() for path in (ROOT / "Python/Src").glob("*.*"))
    missing = [name for name in declared if not re.search(rf"\b{name}\b", used)]
    for name in missing:
        print(f"{name}: {NOT_NEEDED.get(name, 'NOT REACHED')}")
    print(f"{len(declared) - len(missing)} of {len(declared)} functions are used by the package")
    return 1 if any(name not in NOT_NEEDED for name in missing) else 0


if __name__ == "__main__":
    sys.exit(main())
