<p>an older range</p>
