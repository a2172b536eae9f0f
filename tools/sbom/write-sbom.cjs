// write-sbom.cjs INPUT.json OUTPUT.json [CARRIED.json]: writes a CycloneDX bill of materials for one program and
// refuses to write one that its schema does not accept. Same input, same bytes.
//
// With CARRIED, the bill of a program, it is that of a setup program which carries it: of the same name,
// version, time and supplier, made of the carried program, its components and those of INPUT.
const fs = require("fs");
const path = require("path");
const crypto = require("crypto");
const cdx = require("@cyclonedx/cyclonedx-library");

const [inputFile, outputFile, carriedFile] = process.argv.slice(2);
const read = (file) => JSON.parse(fs.readFileSync(file, "utf8"));
const input = carriedFile ? setupInput(read(inputFile), read(carriedFile)) : read(inputFile);

// The input for a setup program, from its own part and the bill of what it carries.
function setupInput(own, bill) {
  const root = bill.metadata.component;
  const carried = (part, extra) => ({
    name: part.name, version: part.version, purl: part.purl, description: part.description,
    licence: part.licenses && (part.licenses[0].expression || part.licenses[0].license.id), ...extra });
  return {
    time: Date.parse(bill.metadata.timestamp) / 1000,
    program: { ...own.program, name: `${root.name}-setup`, version: root.version,
      purl: `pkg:generic/${root.name.toLowerCase()}-setup@${root.version}`,
      description: `setup program of ${root.name}` },
    supplier: root.supplier ? root.supplier.name : "",
    components: [carried(root, { sha256: root.hashes[0].content, application: true }),
      ...bill.components.map((part) => carried(part)), ...own.components],
  };
}

function organisation(name) {
  return new cdx.Models.OrganizationalEntity({ name });
}

function component(entry, type, supplier) {
  const made = new cdx.Models.Component(type, entry.name, {
    version: entry.version,
    description: entry.description,
    bomRef: `${entry.name}@${entry.version}`,
    purl: entry.purl || undefined,
    supplier: supplier ? organisation(supplier) : undefined,
  });
  if (entry.licenceName) {
    made.licenses.add(new cdx.Models.NamedLicense(entry.licenceName));
  } else if (entry.licence) {
    made.licenses.add(entry.licence.includes(" ")
      ? new cdx.Models.LicenseExpression(entry.licence)
      : new cdx.Models.SpdxLicense(entry.licence));
  }
  if (entry.sha256) made.hashes.set(cdx.Enums.HashAlgorithm["SHA-256"], entry.sha256);
  return made;
}

// The tool that writes the document, as it is pinned.
function writer() {
  const name = "@cyclonedx/cyclonedx-library";
  const { version } = read(path.join(path.dirname(require.resolve(name)), "..", "package.json"));
  return new cdx.Models.Component(cdx.Enums.ComponentType.Library, name, {
    version, purl: `pkg:npm/${name.replace("@", "%40")}@${version}` });
}

const { Application, Library } = cdx.Enums.ComponentType;
const bom = new cdx.Models.Bom({ version: 1 });
const root = component(input.program, Application, input.supplier);
bom.metadata.component = root;
if (input.supplier) bom.metadata.supplier = organisation(input.supplier);
bom.metadata.timestamp = new Date(input.time * 1000);
bom.metadata.tools.components.add(writer());
// The serial number is derived from the content of the document.
const digest = crypto.createHash("sha256").update(JSON.stringify(input)).digest("hex");
bom.serialNumber = `urn:uuid:${digest.slice(0, 8)}-${digest.slice(8, 12)}-5${digest.slice(13, 16)}-8${digest.slice(17, 20)}-${digest.slice(20, 32)}`;
for (const entry of input.components) {
  const supplier = entry.application ? input.supplier : (entry.purl || "").startsWith("pkg:deb/debian/") && "Debian";
  const made = component(entry, entry.application ? Application : Library, supplier);
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
  fs.writeFileSync(outputFile, text + "\n");
}).catch((failure) => {
  console.error("the bill of materials could not be checked:", failure);
  process.exit(1);
});
