"use strict";

const data = JSON.parse(document.getElementById("data").textContent);
const by_id = id => document.getElementById(id);

function make(tag, properties = {}, ...children) {
    const element = Object.assign(document.createElement(tag), properties);
    element.append(...children);
    return element;
}

/** Gives a table its caption, its head of {text, number} and its rows. */
function set_table(table, caption, head, rows) {
    const top = make("tr", {}, ...head.map(({text, number}) =>
        make("th", {scope: "col", className: number ? "number" : ""}, text)));
    table.replaceChildren(make("caption", {}, caption), make("thead", {}, top),
                          make("tbody", {}, ...rows));
}
