// write-sbom.cjs INPUT.json OUTPUT.json: writes a CycloneDX bill of materials for one program and
// refuses to write one that its schema does not accept. Same input, same bytes.
const fs = require("fs");
const crypto = require("crypto");
const cdx = require("@cyclonedx/cyclonedx-library");

const input = JSON.parse(fs.readFileSync(process.argv[2], "utf8"));

function component(entry, type) {
  const made = new cdx.Models.Component(type, entry.name, {
    version: entry.version,
    description: entry.description,
    bomRef: `${entry.name}@${entry.version}`,
  });
  if (entry.licence) {
    made.licenses.add(entry.licence.includes(" ")
      ? new cdx.Models.LicenseExpression(entry.licence)
      : new cdx.Models.SpdxLicense(entry.licence));
  }
  if (entry.sha256) made.hashes.set(cdx.Enums.HashAlgorithm["SHA-256"], entry.sha256);
  return made;
}

const bom = new cdx.Models.Bom({ version: 1 });
const root = component(input.program, cdx.Enums.ComponentType.Application);
bom.metadata.component = root;
bom.metadata.timestamp = new Date(input.time * 1000);
// The number names the document, so it follows from what the document says.
const digest = crypto.createHash("sha256").update(JSON.stringify(input)).digest("hex");
bom.serialNumber = `urn:uuid:${digest.slice(0, 8)}-${digest.slice(8, 12)}-5${digest.slice(13, 16)}-8${digest.slice(17, 20)}-${digest.slice(20, 32)}`;
for (const entry of input.components) {
  const made = component(entry, cdx.Enums.ComponentType.Library);
  bom.components.add(made);
  root.dependencies.add(made.bomRef);
}

const version = cdx.Spec.Spec1dot6;
const serializer = new cdx.Serialize.JsonSerializer(new cdx.Serialize.JSON.Normalize.Factory(version));
const text = serializer.serialize(bom, { sortLists: true, space: 2 });
new cdx.Validation.JsonStrictValidator(version.version).validate(text).then((problem) => {
  if (problem !== null) {
    console.error("the bill of materials does not fit its schema:", JSON.stringify(problem));
    process.exit(1);
  }
  fs.writeFileSync(process.argv[3], text + "\n");
}).catch((failure) => {
  console.error("the bill of materials could not be checked:", failure);
  process.exit(1);
});
