"""Reads an HTTP multipart/form-data body the way a server-side form parser does.

Input on stdin: the request's Content-Type header line, an empty line, then the body.
Output on stdout: JSON {name: value as Base64}, plus "!defects" when the parser found fault
with the body. Fails unless every part is a plain form field.
"""
import base64
import email.parser
import email.policy
import json
import sys

message = email.parser.BytesParser(policy=email.policy.HTTP).parsebytes(sys.stdin.buffer.read())
if not message.is_multipart() or message.get_content_type() != "multipart/form-data":
    sys.exit("not a multipart/form-data message")
fields = {}
defects = len(message.defects)
for part in message.iter_parts():
    defects += len(part.defects)
    if part.get_content_disposition() != "form-data" or part.get_filename() or part.get("Content-Type"):
        sys.exit("a part is not a plain form field")
    name = part.get_param("name", header="content-disposition")
    fields[name] = base64.b64encode(part.get_payload(decode=True)).decode("ascii")
if defects:
    fields["!defects"] = base64.b64encode(str(defects).encode()).decode("ascii")
json.dump(fields, sys.stdout)
