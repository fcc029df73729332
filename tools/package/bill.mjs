// The bill of materials: CycloneDX 1.6 as JSON. The same components give the same bytes.
import { createHash } from "node:crypto";

import { Enums, Models, Serialize, Spec } from "@cyclonedx/cyclonedx-library";
import { PackageURL } from "packageurl-js";

/** @typedef {import("./components.mjs").Component} Component */

/** A UUID (version 8: of one's own making) from the digest of a text. @param {string} text */
function uuidOf(text) {
  const hex = createHash("sha256").update(text).digest("hex");
  const variant = ((parseInt(hex[16], 16) & 3) | 8).toString(16);
  return [
    hex.slice(0, 8),
    hex.slice(8, 12),
    `8${hex.slice(13, 16)}`,
    `${variant}${hex.slice(17, 20)}`,
    hex.slice(20, 32),
  ].join("-");
}

/**
 * @param {string} version of the product
 * @param {Component[]} components
 * @param {number} time of the release, in seconds since 1970
 * @returns {string} the document
 */
export function billOf(version, components, time) {
  const product = new Models.Component(Enums.ComponentType.Application, "velmora", {
    bomRef: "velmora",
    version,
    purl: new PackageURL("generic", undefined, "velmora", version, undefined, undefined),
    description:
      "Control service of the Velmora audio effect, its command line and its pages, for 64-bit Windows",
  });
  const parts = components.map(({ name, version: partVersion, description, license, purl }) => {
    const part = new Models.Component(Enums.ComponentType.Library, name, {
      // Two components may come from one package, so the package's address is no name for them.
      bomRef: `library:${name}`,
      version: partVersion,
      description,
      purl,
    });
    part.licenses.add(
      /[ ]/.test(license) ? new Models.LicenseExpression(license) : new Models.SpdxLicense(license),
    );
    return part;
  });
  for (const part of parts) product.dependencies.add(part.bomRef);
  const bom = new Models.Bom({
    serialNumber: `urn:uuid:${uuidOf(JSON.stringify([version, components.map((part) => [part.name, part.version]), time]))}`,
    metadata: new Models.Metadata({ component: product, timestamp: new Date(time * 1000) }),
    components: new Models.ComponentRepository(parts),
  });
  const serializer = new Serialize.JsonSerializer(new Serialize.JSON.Normalize.Factory(Spec.Spec1dot6));
  return `${serializer.serialize(bom, { sortLists: true, space: 2 })}\n`;
}
