#!/usr/bin/python3
# SPDX-License-Identifier: Apache-2.0
"""Writes what a package is made of, as SPDX 2.3 in JSON, to standard output.

The package itself; the source that is compiled into it; and the packages whose libraries its
programs load, in the versions that it was built with. The same build writes the same bytes: the
time is that of SOURCE_DATE_EPOCH, and the name is made from the content.

usage: sbom.py PACKAGE VERSION ARCHITECTURE SUBSTVARS [LIBRARY-PACKAGE...]

SUBSTVARS is what dh_shlibdeps has found for the package; what is loaded when it is needed follows.
"""

import hashlib
import json
import os
import re
import subprocess
import sys
from datetime import datetime, timezone
from pathlib import Path

ROOT = Path(__file__).resolve().parents[1]
NAMESPACE = "https://spdx.org/spdxdocs"


def pinned(name):
    """A value of the script that fetches libbinder's source."""
    return re.search(rf"^{name}=(\S+)$", (ROOT / "scripts/fetch-binder.sh").read_text(), flags=re.M).group(1)


def libraries(substvars):
    """The packages that the programs' libraries come from."""
    line = re.search(r"^shlibs:Depends=(.*)$", Path(substvars).read_text(), flags=re.M)
    alternatives = line.group(1).split(",") if line else []
    return sorted({re.match(r"\s*([a-z0-9][a-z0-9+.-]*)", text).group(1) for text in alternatives if text.strip()})


def installed_version(name, architecture):
    result = subprocess.run(["dpkg-query", "-W", "-f", "${Version}\n", f"{name}:{architecture}"], check=True,
                            capture_output=True, text=True)
    return result.stdout.split("\n", maxsplit=1)[0]


def identifier(name):
    return "SPDXRef-" + re.sub(r"[^A-Za-z0-9.-]", "-", name)


def element(name, version, license_id, purl, **more):
    return {"SPDXID": identifier(name), "name": name, "versionInfo": version, "downloadLocation": "NOASSERTION",
            "filesAnalyzed": False, "licenseConcluded": license_id, "licenseDeclared": license_id,
            "copyrightText": "NOASSERTION",
            "externalRefs": [{"referenceCategory": "PACKAGE-MANAGER", "referenceType": "purl",
                              "referenceLocator": purl}], **more}


def document(package, version, architecture, substvars, *loaded):
    source = pinned("package")
    elements = [
        element(package, version, "Apache-2.0", f"pkg:deb/vus/{package}@{version}?arch={architecture}"),
        element(source, pinned("version"), "Apache-2.0", f"pkg:deb/debian/{source}@{pinned('version')}?arch=source",
                comment="libbinder and the service manager are compiled into the programs",
                checksums=[{"algorithm": "SHA256", "checksumValue": pinned("sha256")}])]
    relations = [("SPDXRef-DOCUMENT", "DESCRIBES", package), (identifier(package), "STATIC_LINK", source)]
    for name in sorted({*libraries(substvars), *loaded}):
        of_build = installed_version(name, architecture)
        elements.append(element(name, of_build, "NOASSERTION", f"pkg:deb/debian/{name}@{of_build}?arch={architecture}"))
        relations.append((identifier(package), "DYNAMIC_LINK", name))
    return {
        "spdxVersion": "SPDX-2.3", "dataLicense": "CC0-1.0", "SPDXID": "SPDXRef-DOCUMENT",
        "name": f"{package}-{version}-{architecture}",
        "packages": elements,
        "relationships": [{"spdxElementId": one, "relationshipType": kind, "relatedSpdxElement": identifier(other)}
                          for one, kind, other in relations]}


def main():
    if len(sys.argv) < 5:
        sys.exit(__doc__.strip())
    bill = document(*sys.argv[1:])
    content = hashlib.sha256(json.dumps(bill, sort_keys=True).encode()).hexdigest()
    bill["documentNamespace"] = f"{NAMESPACE}/{bill['name']}-{content[:32]}"
    created = datetime.fromtimestamp(int(os.environ["SOURCE_DATE_EPOCH"]), timezone.utc)
    bill["creationInfo"] = {"created": created.strftime("%Y-%m-%dT%H:%M:%SZ"), "creators": ["Tool: vus-packaging-sbom"]}
    json.dump(bill, sys.stdout, indent=1, sort_keys=True)
    print()


if __name__ == "__main__":
    main()
