// Checks docs/asyncapi.yaml with AsyncAPI's parser and makes an HTML page of it that needs no network.
//
//   node reference.mjs DOCUMENT FOLDER
import fs from "node:fs";
import path from "node:path";
import {DiagnosticSeverity, Parser, fromFile, stringify} from "@asyncapi/parser";

const [source, folder] = process.argv.slice(2);
const component = path.join(import.meta.dirname, "node_modules/@asyncapi/react-component");

const {document, diagnostics} = await fromFile(new Parser(), source).parse();
const faults = diagnostics.filter(({severity}) => severity <= DiagnosticSeverity.Warning);
for (const {code, path: place, message} of faults)
    console.error(`${source}: ${place.join(".")}: ${message} (${code})`);
if (!document || faults.length)
    process.exit(1);

const settings = {
    schema: stringify(document),
    config: {
        show: {sidebar: true, errors: false},
        expand: {messageExamples: true},
        sendLabel: "document", receiveLabel: "command", replyLabel: "command",
    },
};
const data = JSON.stringify(settings).replaceAll("</", "<\\/"); // no text may end the script
const title = `${document.info().title()} ${document.info().version()}: MQTT interface`;
fs.mkdirSync(folder, {recursive: true});
for (const file of ["styles/default.min.css", "browser/standalone/without-parser.js"])
    fs.copyFileSync(path.join(component, file), path.join(folder, path.basename(file)));
fs.writeFileSync(path.join(folder, "index.html"), `<!DOCTYPE html>
<html lang="en">
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>${title}</title>
<link rel="stylesheet" href="default.min.css">
<style>.aui-root p[class="px-8"] { display: none } /* "Accepts the following message", said of documents too */</style>
<body style="margin: 0">
<div id="reference"></div>
<script src="without-parser.js"></script>
<script>AsyncApiStandalone.render(${data}, document.getElementById("reference"));</script>
`);
