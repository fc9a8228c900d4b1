"""Reads an HTTP multipart/form-data body the way a server-side form parser does.

Input on stdin: the request's Content-Type header line, an empty line, then the body.
Output on stdout: JSON {"defects": <count>, "parts": [{"name", "value" (Base64),
"contentType", "filename"}]}.
"""
import base64
import email.parser
import email.policy
import json
import sys

message = email.parser.BytesParser(policy=email.policy.HTTP).parsebytes(sys.stdin.buffer.read())
if not message.is_multipart() or message.get_content_type() != "multipart/form-data":
    sys.exit("not a multipart/form-data message")

defects = len(message.defects)
parts = []
for part in message.iter_parts():
    defects += len(part.defects)
    if part.get_content_disposition() != "form-data":
        sys.exit("a part is not form-data")
    parts.append({
        "name": part.get_param("name", header="content-disposition"),
        "value": base64.b64encode(part.get_payload(decode=True)).decode("ascii"),
        "contentType": part.get("Content-Type"),
        "filename": part.get_filename(),
    })
json.dump({"defects": defects, "parts": parts}, sys.stdout)
